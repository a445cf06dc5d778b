#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "fs/exfat/ExFatEngine.h"
#include "fs/fat/FatEngine.h"
#include "fs/ntfs/NtfsEngine.h"
#include "recover/Recover.h"
#include "recover/TreeMove.h"
#include "storage/BootSector.h"
#include "storage/SourceLayout.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

constexpr size_t kBootBytes = 512;

std::vector<uint8_t> ReadSector(CStorageMedia& media, uint64_t sector) {
    uint32_t ss = std::max<uint32_t>(media.GetSectorSize(), kBootBytes);
    std::vector<uint8_t> buf(ss, 0);
    if (!media.ReadSectors(buf.data(), ss, sector, true)) std::fill(buf.begin(), buf.end(), 0);
    return buf;
}

// The volume of the selected range from its first boot sector, else from the backup copies
// each file system keeps (NTFS in the range's last sector, FAT32 six sectors on, exFAT twelve).
std::optional<PartitionRecord> RecogniseRange(CPhysicalDisk& media) {
    const uint64_t first = media.GetFirstSector(), count = media.GetSectorCount();
    auto boot = ReadSector(media, first);
    if (auto r = RecogniseVolume(media, Bytes(boot.data(), kBootBytes), count)) return r;
    std::vector<uint64_t> backups;
    if (count > 1) backups.push_back(first + count - 1);
    if (count > 6) backups.push_back(first + 6);
    if (count > 12) backups.push_back(first + 12);
    for (uint64_t at : backups) {
        auto b = ReadSector(media, at);
        auto r = RecogniseVolume(media, Bytes(b.data(), kBootBytes), count);
        if (!r) continue;
        // A copy of the volume's own first sector only when it names this range's size: a
        // FAT32 copy at +6, an exFAT one at +12, an NTFS one in the last sector.
        bool fits = (r->fsKind == FsKind::Ntfs && at == first + count - 1) || (r->fsKind == FsKind::Fat32 && at == first + 6) ||
                    (r->fsKind == FsKind::ExFat && at == first + 12);
        if (!fits) continue;
        r->partitionFlag = PartitionFlag::TableOnly;
        return r;
    }
    return std::nullopt;
}

Outcome RunEngine(CPhysicalDisk& media, FsKind kind, ScanContext& ctx) {
    switch (kind) {
    case FsKind::Ntfs: return NtfsScanVolume(media, 1, ctx);
    case FsKind::Fat12:
    case FsKind::Fat16:
    case FsKind::Fat32: return FatScanVolume(media, 1, ctx);
    case FsKind::ExFat: return ExFatScanVolume(media, 1, ctx);
    default: return Outcome::Ok;
    }
}

} // namespace

bool WantsSmartScan(const PartitionRecord& r) { return r.partitionFlag == PartitionFlag::TableOnly; }

Outcome SmartScanVolume(CPhysicalDisk& media, ScanContext& ctx) {
    WalkWatch watch(media);
    if (!ctx.top) return Outcome::Ok;
    const uint64_t first = media.GetFirstSector(), count = media.GetSectorCount();
    std::optional<PartitionRecord> found = RecogniseRange(media);
    if (found) {
        PartitionRecord r = *found;
        r.startSector = first;
        // The range stays what was selected: the engines clip their reads to it.
        media.SetFsKind(r.fsKind);
        media.SetPartitionFlag(r.partitionFlag);
        media.SetPartitionParams(r);
        std::unique_ptr<CNode> scratch(MakeTopNode());
        ScanContext inner{ctx.op, ctx.events, ctx.gate, ctx.mode, scratch.get(), ctx.signatures};
        Outcome walked = RunEngine(media, r.fsKind, inner);
        if (TreeHasItems(scratch.get()) || r.fsKind != FsKind::Ntfs) {
            MoveVolumeRoots(scratch.get(), ctx.top);
            return walked;
        }
        if (Ends(walked)) return walked;
        // NTFS whose MFT and mirror cannot be read: the record search below.
    }
    media.SetFsKind(FsKind::Ntfs);
    if (!found) {
        PartitionRecord r;
        r.fsKind = FsKind::Ntfs;
        r.startSector = first;
        r.length = count;
        r.partitionFlag = PartitionFlag::TableOnly;
        media.SetPartitionFlag(PartitionFlag::TableOnly);
        media.SetPartitionParams(r);
    }
    return Worse(watch.Finish(ctx), NtfsSearchRecords(media, 0, count, ctx));
}

} // namespace kestrin
