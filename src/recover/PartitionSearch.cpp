#include <algorithm>
#include <cstring>
#include <tuple>
#include <vector>

#include "fs/ntfs/NtfsEngine.h"
#include "fs/ntfs/NtfsLayout.h"
#include "fs/ntfs/NtfsRecord.h"
#include "recover/Recover.h"
#include "storage/BootSector.h"
#include "storage/BootSectorLayout.h"
#include "storage/SourceLayout.h"
#include "storage/SplitRead.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

namespace fat_boot = layout::fat_boot;
namespace ntfs_boot = layout::ntfs_boot;
namespace exfat_boot = layout::exfat_boot;

constexpr size_t kBootBytes = layout::kBootSectorBytes;

// The NTFS file-record fields the check of a candidate reads.
namespace file_record = layout::ntfs::file_record;
using FileRecordNumber = file_record::RecordNumber;
using NonResidentDataSize = layout::ntfs::nonresident::DataSize; // from the attribute's first byte
constexpr const char* kFileRecordSignature = file_record::kMagic;
constexpr size_t kFileRecordSignatureBytes = sizeof file_record::kMagic - 1;
// $BadClus, whose $Bad stream is as long as the volume.
constexpr uint32_t kBadClusRecord = 8;
constexpr uint8_t kBadStreamNameUnits = 4;
// Index records of volumes without a boot sector are assumed to be of the usual size.
constexpr uint32_t kDefaultIndexRecordBytes = 4096;

// The first entry of a FAT: the media descriptor in its low byte and every other bit set (FAT32:
// its low 28 bits; FAT12: 12 bits, followed by the 0xFFF of entry 1). exFAT's first entry is a
// constant.
using Fat16FirstEntry = LeField<uint16_t, 0>;
using Fat32FirstEntry = LeField<uint32_t, 0>;
constexpr uint16_t kFat16FirstEntryHigh = 0xFF00;
constexpr uint32_t kFat32FirstEntryHigh = 0x0FFFFF00, kFat32EntryMask = 0x0FFFFFFF;
constexpr uint32_t kExFatFirstEntry = 0xFFFFFFF8;
// The exFAT backup boot region starts at volume sector 12.
constexpr uint64_t kExFatBackupBootSector = 12;
constexpr uint8_t kExFatMinSectorShift = 9, kExFatMaxSectorShift = 12;
// FAT32 formatters put the backup boot sector within the first 32 reserved sectors.
constexpr uint16_t kFat32MaxBackupSector = 32;
// One read of the search; the next 4 KiB are read with it so that an MFT record that starts
// near the end of a chunk is whole.
constexpr uint32_t kChunkBytes = 4u << 20;
constexpr uint32_t kTailBytes = 4096;
// Candidates kept from one pass (a disk full of boot-sector-shaped sectors stops adding here).
constexpr size_t kMaxCandidates = 1u << 16;
constexpr uint32_t kMaxRecordBytes = 4096;

uint32_t MediaSectorSize(const CStorageMedia& media) {
    uint32_t ss = media.GetSectorSize();
    return ss >= kBootBytes ? ss : uint32_t(kBootBytes);
}

// Volume sectors of `bps` bytes as media sectors (rounded up); saturates instead of overflowing.
uint64_t ToMediaSectors(uint64_t sectors, uint32_t bps, uint32_t ss) {
    if (bps == 0 || bps == ss) return sectors;
    if (sectors > ~0ull / bps) return ~0ull / ss;
    return (sectors * bps + ss - 1) / ss;
}

bool ReadAt(CStorageMedia& media, uint64_t sector, std::vector<uint8_t>& buf) {
    std::fill(buf.begin(), buf.end(), 0);
    return media.ReadSectors(buf.data(), uint32_t(buf.size()), sector, true);
}

void Add(std::vector<PartitionCandidate>& out, uint64_t start, uint64_t length, FsKind kind, uint8_t source,
         uint64_t seenAt) {
    PartitionCandidate c;
    c.startSector = start;
    c.length = length;
    c.fsKind = kind;
    c.source = source;
    c.seenAt = seenAt;
    out.push_back(c);
}

// The $MFT record at `at`: the volume starts where the MFT's first cluster says, given the
// cluster size that the record's own $DATA attribute shows (allocated bytes over clusters).
void CandidateFromMftRecord(CStorageMedia& media, std::span<const uint8_t> bytes, uint64_t at,
                            std::vector<PartitionCandidate>& out) {
    namespace fr = layout::ntfs::file_record;
    namespace nr = layout::ntfs::nonresident;
    Bytes b(bytes.data(), bytes.size());
    if (fr::RecordNumber::Or(b, 1) != 0) return; // record number 0 only
    uint32_t recordBytes = fr::BytesAllocated::Or(b, 0);
    if (recordBytes != 1024 && recordBytes != 4096) return;
    if (recordBytes > bytes.size()) return;
    std::vector<uint8_t> rec(bytes.begin(), bytes.begin() + recordBytes);
    if (!CheckFileRecord(rec, recordBytes) || !IsMftRecord(Bytes(rec))) return;
    const uint32_t ss = MediaSectorSize(media);
    Bytes r(rec);
    ForEachAttribute(r, [&](const NtfsAttr& a) {
        if (a.type != kAttrData || !a.nonResident || !a.Unnamed()) return true;
        uint64_t firstVcn = nr::FirstVcn::Or(r, 1, a.offset);
        uint64_t lastVcn = nr::LastVcn::Or(r, 0, a.offset);
        uint64_t allocated = nr::AllocatedSize::Or(r, 0, a.offset);
        uint16_t runsAt = nr::RunListOffset::Or(r, 0, a.offset);
        if (firstVcn != 0 || lastVcn == ~0ull || runsAt == 0 || runsAt >= a.length) return false;
        uint64_t clusters = lastVcn + 1;
        if (allocated == 0 || allocated % clusters) return false;
        uint64_t bpc = allocated / clusters;
        if (bpc < 512 || bpc > (2u << 20) || (bpc & (bpc - 1)) || bpc % ss) return false;
        std::vector<NtfsRun> runs;
        DecodeRuns(Bytes(rec.data() + a.offset, a.length), runsAt, runs);
        if (runs.empty() || runs.front().sparse) return false;
        uint64_t lcn = runs.front().startCluster;
        uint64_t back = lcn > ~0ull / bpc ? ~0ull : lcn * bpc / ss;
        if (back > at) return false;
        PartitionCandidate c;
        c.startSector = at - back;
        c.fsKind = FsKind::Ntfs;
        c.source = 2;
        c.seenAt = at;
        c.clusterBytes = uint32_t(bpc);
        c.recordBytes = recordBytes;
        c.mftCluster = lcn;
        out.push_back(c);
        return false;
    });
}

} // namespace

void CandidatesFromSector(CStorageMedia& media, std::span<const uint8_t> bytes, uint64_t at, uint64_t diskSectors,
                          std::vector<PartitionCandidate>& out) {
    if (bytes.size() < kBootBytes) return;
    Bytes s(bytes.data(), kBootBytes);
    const uint32_t ss = MediaSectorSize(media);
    if (MatchAt(s, 0, kFileRecordSignature, kFileRecordSignatureBytes)) {
        CandidateFromMftRecord(media, bytes.subspan(0, std::min<size_t>(bytes.size(), kMaxRecordBytes)), at, out);
        return;
    }
    if (layout::BootSignature::Read(s) != layout::kBootSignatureValue) return;
    auto r = RecogniseVolume(media, s, 0);
    if (!r) return;
    switch (r->fsKind) {
    case FsKind::Ntfs: {
        // The copy in the volume's last sector: the volume starts its total before it.
        uint64_t total = ToMediaSectors(ntfs_boot::TotalSectors::Or(s, 0), ntfs_boot::BytesPerSector::Or(s, 0), ss);
        if (total == 0 || total >= diskSectors) return;
        Add(out, at, total + 1, FsKind::Ntfs, 0, at);
        if (at >= total) Add(out, at - total, total + 1, FsKind::Ntfs, 1, at);
        return;
    }
    case FsKind::Fat32: {
        uint64_t total = fat_boot::TotalSectors32::Or(s, 0);
        if (total == 0) return;
        Add(out, at, total, FsKind::Fat32, 0, at);
        uint16_t backup = fat_boot::BackupBootSector32::Or(s, 0);
        if (backup >= 1 && backup <= kFat32MaxBackupSector && at >= backup) Add(out, at - backup, total, FsKind::Fat32, 1, at);
        return;
    }
    case FsKind::ExFat: {
        uint8_t shift = exfat_boot::BytesPerSectorShift::Or(s, 0);
        if (shift < kExFatMinSectorShift || shift > kExFatMaxSectorShift) return;
        uint64_t total = ToMediaSectors(exfat_boot::VolumeLength::Or(s, 0), 1u << shift, ss);
        if (total == 0) return;
        Add(out, at, total, FsKind::ExFat, 0, at);
        uint64_t backupAt = ToMediaSectors(kExFatBackupBootSector, 1u << shift, ss);
        if (at >= backupAt) Add(out, at - backupAt, total, FsKind::ExFat, 1, at);
        return;
    }
    case FsKind::Fat12:
    case FsKind::Fat16: {
        uint64_t total = fat_boot::TotalSectors16::Or(s, 0);
        if (total == 0) total = fat_boot::TotalSectors32::Or(s, 0);
        if (total) Add(out, at, total, r->fsKind, 0, at);
        return;
    }
    default:
        return;
    }
}

bool CheckCandidate(CStorageMedia& media, uint64_t diskSectors, const PartitionCandidate& c, PartitionRecord& out) {
    const uint32_t ss = MediaSectorSize(media);
    if (c.startSector >= diskSectors || c.seenAt >= diskSectors) return false;
    const uint64_t room = diskSectors - c.startSector;
    std::vector<uint8_t> sector(ss);
    PartitionRecord r;
    if (c.source == 2) {
        // No boot sector: the geometry the $MFT record gave, checked by record 5 (the root
        // folder) where the MFT says it is. The copy in $MFTMirr holds only the first four records.
        if (c.clusterBytes < ss || c.clusterBytes / ss > 128 || !c.recordBytes) return false;
        std::vector<uint8_t> rec(c.recordBytes * (kBadClusRecord + 1));
        uint64_t mftSector = c.startSector + c.mftCluster * (c.clusterBytes / ss);
        if (mftSector != c.seenAt) return false;
        if (!ReadAt(media, mftSector, rec)) return false;
        std::span<uint8_t> root(rec.data() + kNtfsRootRecord * c.recordBytes, c.recordBytes);
        if (FileRecordNumber::Or(Bytes(root.data(), root.size()), 0) != kNtfsRootRecord) return false;
        if (!CheckFileRecord(root, c.recordBytes)) return false;
        r.fsKind = FsKind::Ntfs;
        r.bytesPerSector = uint16_t(ss);
        r.sectorsPerCluster = uint32_t(c.clusterBytes / ss);
        r.bytesPerCluster = c.clusterBytes;
        r.mftRecordSize = uint16_t(c.recordBytes);
        r.sectorsPerMftRecord = uint8_t(std::max<uint32_t>(1, c.recordBytes / ss));
        r.indexRecordSize = kDefaultIndexRecordBytes;
        r.sectorsPerIndexRecord = uint8_t(std::max<uint32_t>(1, kDefaultIndexRecordBytes / ss));
        r.secondArea = c.mftCluster;
        // The size: the $Bad stream of $BadClus (record 8) is as long as the volume.
        uint64_t length = 0;
        std::span<uint8_t> bad(rec.data() + kBadClusRecord * c.recordBytes, c.recordBytes);
        if (FileRecordNumber::Or(Bytes(bad.data(), bad.size()), 0) == kBadClusRecord &&
            CheckFileRecord(bad, c.recordBytes)) {
            Bytes b(bad.data(), bad.size());
            ForEachAttribute(b, [&](const NtfsAttr& a) {
                if (a.type == kAttrData && a.nonResident && a.nameLength == kBadStreamNameUnits) {
                    uint64_t bytes = NonResidentDataSize::Or(b, 0, a.offset);
                    length = bytes / ss + 1; // and the boot-sector copy after the last cluster
                    return false;
                }
                return true;
            });
        }
        if (length == 0 || length > room) length = room;
        r.length = length;
        r.clusterCount = uint32_t(std::min<uint64_t>(length * ss / c.clusterBytes, 0xFFFFFFFFu));
        r.partitionFlag = PartitionFlag::TableOnly;
    } else {
        if (!ReadAt(media, c.seenAt, sector)) return false;
        auto got = RecogniseVolume(media, Bytes(sector.data(), kBootBytes), std::min(c.length, room));
        if (!got || got->fsKind != c.fsKind) return false;
        r = *got;
        // The sector buffer holds at least a boot sector.
        uint8_t descriptor = fat_boot::MediaDescriptor::At(sector.data());
        switch (r.fsKind) {
        case FsKind::Ntfs: {
            uint32_t bpc = r.bytesPerCluster, recBytes = r.mftRecordSize;
            if (bpc < ss || bpc % ss || recBytes < 512 || recBytes > kMaxRecordBytes || recBytes % 512) return false;
            uint64_t clusterSectors = bpc / ss;
            auto recordOk = [&](uint64_t cluster) {
                if (cluster > (diskSectors - c.startSector) / clusterSectors) return false;
                std::vector<uint8_t> rec((recBytes + ss - 1) / ss * ss);
                if (!ReadAt(media, c.startSector + cluster * clusterSectors, rec)) return false;
                return CheckFileRecord(std::span<uint8_t>(rec.data(), recBytes), recBytes);
            };
            if (!recordOk(r.secondArea) && !recordOk(r.thirdArea)) return false;
            break;
        }
        case FsKind::Fat12:
        case FsKind::Fat16:
        case FsKind::Fat32: {
            if (r.fatStart == 0 || r.fatStart >= room) return false;
            if (!ReadAt(media, c.startSector + r.fatStart, sector)) return false;
            if (Fat16FirstEntry::At(sector.data()) != (kFat16FirstEntryHigh | descriptor)) return false;
            if (r.fsKind == FsKind::Fat32 &&
                (Fat32FirstEntry::At(sector.data()) & kFat32EntryMask) != (kFat32FirstEntryHigh | descriptor))
                return false;
            if (HasFatRootRegion(r.fsKind) && r.length > room) return false;
            break;
        }
        case FsKind::ExFat: {
            uint32_t bps = r.bytesPerSector ? r.bytesPerSector : ss;
            uint64_t fatSector = ToMediaSectors(r.fatStart, bps, ss);
            if (fatSector == 0 || fatSector >= room) return false;
            if (!ReadAt(media, c.startSector + fatSector, sector)) return false;
            if (Fat32FirstEntry::At(sector.data()) != kExFatFirstEntry) return false;
            break;
        }
        default:
            return false;
        }
        r.length = std::min(c.length, room);
        // A volume found through a copy of its boot sector keeps the geometry read from the copy.
    }
    r.startSector = c.startSector;
    r.found = true;
    out = r;
    return true;
}

std::vector<PartitionRecord> RankCandidates(CStorageMedia& media, uint64_t diskSectors,
                                            std::vector<PartitionCandidate> candidates,
                                            std::span<const PartitionRecord> table, size_t limit) {
    std::sort(candidates.begin(), candidates.end(), [](const PartitionCandidate& a, const PartitionCandidate& b) {
        return std::tie(a.startSector, a.source, a.fsKind, a.seenAt) < std::tie(b.startSector, b.source, b.fsKind, b.seenAt);
    });
    candidates.erase(std::unique(candidates.begin(), candidates.end(),
                                 [](const PartitionCandidate& a, const PartitionCandidate& b) {
                                     return a.startSector == b.startSector && a.source == b.source &&
                                            a.fsKind == b.fsKind;
                                 }),
                     candidates.end());
    std::vector<PartitionRecord> accepted;
    size_t checks = 0;
    uint64_t intactStart = ~0ull; // a table entry whose own boot sector was seen intact
    for (const auto& c : candidates) {
        // Candidates are sorted by start, then source: the primary boot sector comes first, so its
        // copies and the MFT's vote add nothing once the table's entry proved intact.
        bool listed = c.startSector == intactStart;
        for (const auto& t : table)
            // The table's entry reads the same boot sector (checked or not; an unchecked entry is
            // read by what its boot sector holds, whatever type the table gives): nothing new. A
            // volume found through a copy or its MFT is listed, since its own first sector is damaged.
            if (t.startSector == c.startSector &&
                (c.source == 0 || (t.partitionFlag == PartitionFlag::Validated && t.fsKind == c.fsKind)))
                listed = true;
        if (listed) {
            if (c.source == 0) intactStart = c.startSector;
            continue;
        }
        bool covered = false;
        for (const auto& a : accepted) {
            // Same start: the better source came first. Inside an accepted volume: a file-system
            // image stored in it, or a stale copy; not a partition of this disk.
            if (c.startSector >= a.startSector && c.startSector - a.startSector < std::max<uint64_t>(a.length, 1))
                covered = true;
        }
        if (covered) continue;
        if (checks++ >= limit) break;
        PartitionRecord r;
        if (CheckCandidate(media, diskSectors, c, r)) accepted.push_back(r);
    }
    return accepted;
}

size_t SearchLostPartitions(CPhysicalDisk& media, ScanContext& ctx) {
    const uint32_t ss = MediaSectorSize(media);
    const uint64_t base = media.GetFirstSector(), count = media.GetSectorCount();
    const uint64_t end = base + count;
    const uint32_t chunkSectors = kChunkBytes / ss;
    std::vector<uint8_t> buf(size_t(chunkSectors) * ss + kTailBytes);
    std::vector<PartitionCandidate> candidates;
    CSplitReader split(media);
    ctx.op.endSector.store(end);
    // Holes of a sparse image hold no boot sector and no record: chunks wholly inside one are
    // not read. The chunks keep their places, so what is read is read as it always was.
    uint64_t dataFirst = base, dataEnd = base;
    for (uint64_t at = base; at < end; at += chunkSectors) {
        if (ctx.MustStop(media)) break;
        if (at >= dataEnd) {
            media.DataRunSectors(at, dataFirst, dataEnd);
            if (dataFirst >= end) break;
        }
        if (dataFirst >= at + chunkSectors) {
            at += (dataFirst - at) / chunkSectors * chunkSectors;
            if (at >= end) break;
        }
        ctx.op.currentSector.store(at);
        ctx.Progress(int64_t(at - base), int64_t(count), ss);
        uint64_t n = std::min<uint64_t>(chunkSectors, end - at);
        size_t want = std::min<uint64_t>(buf.size(), (end - at) * ss);
        // What the read does not deliver reads as zeros: past `want`, and past the source's end.
        std::fill(buf.begin() + ptrdiff_t(want), buf.end(), 0);
        const uint64_t pastEndBefore = media.BytesPastEnd();
        if (!split.Read(buf.data(), uint32_t(want), at)) continue; // unreadable: skipped
        const size_t missing = size_t(std::min<uint64_t>(media.BytesPastEnd() - pastEndBefore, want));
        std::fill(buf.begin() + ptrdiff_t(want - missing), buf.begin() + ptrdiff_t(want), 0);
        for (uint64_t i = 0; i < n && candidates.size() < kMaxCandidates; ++i) {
            const uint8_t* p = buf.data() + i * ss;
            // Every sector of the chunk holds at least a boot sector's bytes.
            bool boot = layout::BootSignature::At(p) == layout::kBootSignatureValue;
            bool record = std::memcmp(p, kFileRecordSignature, kFileRecordSignatureBytes) == 0;
            if (!boot && !record) continue;
            size_t avail = std::min<size_t>(buf.size() - i * ss, want > i * ss ? want - i * ss : 0);
            CandidatesFromSector(media, std::span<const uint8_t>(p, avail), at + i, end, candidates);
        }
    }
    ctx.Progress(int64_t(count), int64_t(count), ss);
    std::vector<PartitionRecord> table;
    if (media.Partitions().size() > 1) table.assign(media.Partitions().begin() + 1, media.Partitions().end());
    table.insert(table.end(), media.SecondPartitions().begin(), media.SecondPartitions().end());
    auto found = RankCandidates(media, end, std::move(candidates), table);
    for (auto& r : found) media.SecondPartitions().push_back(r);
    return found.size();
}

Outcome RecoverRecordSearch(CPhysicalDisk& media, uint64_t, uint64_t, ScanContext& ctx) {
    WalkWatch watch(media);
        // A chosen volume or partition in formatted mode: what the previous file system left there.
    SourceKind source = media.GetSourceKind();
    if (ctx.mode == RecoveryMode::Formatted && source != SourceKind::PhysicalDisk && source != SourceKind::ImageFile) {
        return SearchPreviousFileSystem(media, ctx);
    }
    size_t added = SearchLostPartitions(media, ctx);
    // Nothing to place a volume by (no table entry, no boot sector, no usable $MFT record 0):
    // the MFT records lying on the disk are still worth listing, each read back from the volume
    // start the records themselves vote for.
    bool tableHasVolumes = media.Partitions().size() > 1 || !media.SecondPartitions().empty();
    if (added == 0 && !tableHasVolumes && !ctx.MustStop(media)) {
        // The items are read back through the NTFS engine from this whole range, as the smart
        // scan does for a volume whose MFT is gone.
        PartitionRecord r;
        r.fsKind = FsKind::Ntfs;
        r.startSector = media.GetFirstSector();
        r.length = media.GetSectorCount();
        r.partitionFlag = PartitionFlag::TableOnly;
        media.SetFsKind(FsKind::Ntfs);
        media.SetPartitionFlag(PartitionFlag::TableOnly);
        media.SetPartitionParams(r);
        return NtfsSearchRecords(media, 0, media.GetSectorCount(), ctx);
    }
    return watch.Finish(ctx);
}

} // namespace kestrin
