#pragma once
// The signature scan: walks [firstSector, endSector) of the media in chunks of 512 sectors,
// offers every sector to the scanners of the ticked rows and files each hit under "File Types".
#include <cstdint>

#include "fs/Content.h"
#include "job/Outcome.h"

namespace kestrin {

class CPhysicalDisk;
class CNode;
class CScanner;
struct ScanContext;

enum SignatureScanKind : uint32_t {
    kScanRecordsOnly = 1,    // no signatures: the record search runs as a stage of its own
    kScanSignaturesOnly = 2, // signatures only
    kScanRecordsAndSignatures = 3,
};

// Sectors of 512 bytes per read of the loop (with larger sectors, as many bytes: 1 MiB).
inline constexpr uint32_t kSignatureChunkSectors = 2048;
// An embedded item (a camera raw's preview) of this size or more is dropped.
inline constexpr uint64_t kMaxEmbeddedSize = 0x400000;

// Stopped when a stop ended the loop early, DeviceGone when the source went away (in the loop's
// read or a scanner's) and ReadFailed when access was refused mid-scan (both end it; the items
// found so far stay), else ReadFailed when some chunks could not be read, else Ok. A kind without
// signatures returns Ok at once.
Outcome ScanSignatures(CPhysicalDisk& media, uint32_t scanKind, uint64_t firstSector, uint64_t endSector,
                        ScanContext& ctx);

// Files one hit of `scanner` at `sector` under "File Types": the type folder named by the
// extension without its dot, the range folder of the thousand ("jpg[1001-2000]"), "file#n" when
// fileSize is nonzero and "file_RAW#n" (sharing n) for an embedded item below 4 MiB. Folders
// count their files in `size`; new items go first. Returns how many file items it added.
int AddCarvedHit(CNode* fileTypes, CScanner& scanner, uint64_t sector, uint64_t fileSize, uint64_t embeddedSize);

// A carved item's bytes: one run from byte node.startOffset of sector node.location up to
// node.size bytes counted from the first byte of that sector (an embedded item's size includes
// its offset in the sector). Read in large runs; an unreadable run is written as zeros.
ContentResult CarvedWriteContent(CPhysicalDisk& media, const CNode& node, const ContentSink& sink);

} // namespace kestrin
