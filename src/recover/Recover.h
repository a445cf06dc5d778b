#pragma once
// Recovery operations on top of the file-system engines: the smart scan of a volume whose boot
// sector or MFT is damaged, the search of a whole disk for lost partitions, and the search of a
// formatted volume for what its previous file system left behind.
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "job/ScanContext.h"
#include "storage/CPhysicalDisk.h"
#include "storage/PartitionRecord.h"

namespace kestrin {

class CNode;

// Smart scan of the selected range: the file system is taken from the boot sector with the broad
// recognition (or a backup boot sector), whatever kind the table announced; the media's kind and
// parameters are set to it so that content read-back goes to the same engine. NTFS volumes whose
// MFT cannot be read, and ranges with no usable boot sector, get the whole-range record search.
Outcome SmartScanVolume(CPhysicalDisk& media, ScanContext& ctx);

// Whether a listed partition should be scanned with the smart scan rather than the plain one:
// its boot sector failed the strict test (flag 1).
bool WantsSmartScan(const PartitionRecord& r);

// The whole-disk record stage of OperationKind::PartitionSearch: on a volume in formatted mode the search for the
// previous file system, otherwise the lost-partition search.
Outcome RecoverRecordSearch(CPhysicalDisk& media, uint64_t firstSector, uint64_t endSector, ScanContext& ctx);

// Lost-partition search over the whole media (sectors 0 to the count) in one pass. Checked and
// de-duplicated candidates (not already in the table) are appended to media.SecondPartitions()
// with found = true. Returns how many were added.
size_t SearchLostPartitions(CPhysicalDisk& media, ScanContext& ctx);

// A candidate volume start seen during the search, before it is checked.
struct PartitionCandidate {
    uint64_t startSector = 0;
    uint64_t length = 0;  // sectors of the media
    FsKind fsKind = FsKind::None;
    uint8_t source = 0;   // 0 primary boot sector, 1 backup boot sector, 2 MFT record
    uint64_t seenAt = 0;  // where the structure was seen
    // MFT-record candidates: what the $MFT record gave.
    uint32_t clusterBytes = 0;
    uint32_t recordBytes = 0;
    uint64_t mftCluster = 0;
};

// Checks one candidate against the media: reads its boot sector (or the backup that produced it),
// fills the geometry and tests that its FAT / MFT can be read. Fills `out` when it passes.
bool CheckCandidate(CStorageMedia& media, uint64_t diskSectors, const PartitionCandidate& c, PartitionRecord& out);

// The candidates one sector of the media gives (boot sectors and their backups, the $MFT record),
// `sector` being the bytes at media sector `at` with `record` the bytes from there on (for an
// MFT record, up to 4096). Appends to `out`.
void CandidatesFromSector(CStorageMedia& media, std::span<const uint8_t> bytes, uint64_t at, uint64_t diskSectors,
                          std::vector<PartitionCandidate>& out);

// Orders, de-duplicates and checks candidates: table entries (validated, same start and kind) are
// not repeated, a candidate inside an accepted one is dropped. At most `limit` checks are run.
std::vector<PartitionRecord> RankCandidates(CStorageMedia& media, uint64_t diskSectors,
                                            std::vector<PartitionCandidate> candidates,
                                            std::span<const PartitionRecord> table, size_t limit = 4096);

// The search for the previous file system of the selected volume (formatted recovery): NTFS
// file and index records first; when they give nothing, FAT folders found by their "." and ".."
// entries. The media's kind is set to the file system whose items are listed.
Outcome SearchPreviousFileSystem(CPhysicalDisk& media, ScanContext& ctx);

} // namespace kestrin
