#pragma once
// The NTFS engine: the volume scan from the MFT (or its mirror), the whole-range search for file
// and index records when the MFT is gone, and the content read-back of one found file.
#include <cstdint>
#include <functional>

#include "fs/Content.h"
#include "job/ScanContext.h"
#include "storage/CPhysicalDisk.h"

namespace kestrin {

// Node flag of an item that is a named data stream of its record: its name ends in ":stream",
// and its content is that stream's, not the record's unnamed data.
constexpr uint16_t kNodeNtfsStream = 8;

// Scans the selected volume (boot sector at media.GetFirstSector()): every MFT record, in use or
// not, in batches, with progress and stop; the result goes under ctx.top as the volume root ".".
// Nothing is attached when neither the MFT nor its mirror can be read.
Outcome NtfsScanVolume(CPhysicalDisk& media, int mode, ScanContext& ctx);

// Searches sectors [firstSector, endSector) of the selected range (relative to its first sector)
// for "FILE" and "INDX" records, testing every 512-byte position that can start one, and builds
// the tree from what it finds under ctx.top as ".". Base records with an attribute list take
// their names and sizes from the extension records the search met. Files remember where their
// volume starts (see CNtfsRecordSearch.h), so that a search over a whole disk reads their
// clusters from the right place.
Outcome NtfsSearchRecords(CPhysicalDisk& media, uint64_t firstSector, uint64_t endSector, ScanContext& ctx);

// Writes the content of one NTFS item (node.size bytes) by re-reading its record at
// node.location: resident data, runs, sparse runs as zeros, pieces in extension records,
// LZNT1-compressed units decompressed. Clusters past the volume end the copy (beyondVolume).
// A non-zero node.startOffset (set by the record search) is the distance in sectors from the
// volume's first sector to the record; 0 means the volume starts at the selected range.
ContentResult NtfsWriteContent(CPhysicalDisk& media, const CNode& node, const ContentSink& sink);

// Judges every deleted file below `volumeRoot` (found on the media's selected volume) against
// the volume's cluster bitmap ($Bitmap, read once): the clusters its record's data runs name,
// in use now or not. Resident data holds no clusters. Files whose record no longer reads stay
// unknown. False when the bitmap cannot be had or `stop` said so.
bool NtfsJudgeConditions(CPhysicalDisk& media, CNode& volumeRoot, const std::function<bool()>& stop);

} // namespace kestrin
