#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "fs/fat/CFatVolume.h"
#include "fs/fat/FatEngine.h"
#include "fs/fat/FatLayout.h"
#include "fs/ntfs/NtfsEngine.h"
#include "recover/Recover.h"
#include "recover/TreeMove.h"
#include "storage/BootSector.h"
#include "storage/SourceLayout.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

constexpr size_t kReadBytes = 4u << 20;

// The FAT kind of the selected range from its boot sector (broad recognition), else the media's.
FsKind CurrentKind(CPhysicalDisk& media) {
    uint32_t ss = std::max<uint32_t>(media.GetSectorSize(), 512);
    std::vector<uint8_t> boot(ss, 0);
    media.ReadSectors(boot.data(), ss, media.GetFirstSector(), true);
    if (auto r = RecogniseVolume(media, Bytes(boot.data(), 512), media.GetSectorCount())) return r->fsKind;
    return media.GetFsKind();
}

// A folder entry named "." (or ".."); `e` points at a whole entry.
bool IsDotEntry(const uint8_t* e, bool dotDot) {
    using namespace layout::fat_dir;
    return std::memcmp(e + Name83::kOffset, dotDot ? kDotDotName : kDotName, Name83::kSize) == 0 &&
           (Attributes::At(e) & kAttrFolder) != 0;
}

} // namespace

std::vector<uint32_t> FindFatFolderClusters(CPhysicalDisk& media, ScanContext* ctx, size_t limit) {
    std::vector<uint32_t> out;
    CFatVolume vol(media);
    FsKind kind = CurrentKind(media);
    if (kind != FsKind::Fat16 && kind != FsKind::Fat32) return out;
    if (!vol.Open(kind)) return out;
    const FatGeometry& g = vol.Geometry();
    using layout::fat_dir::kEntryBytes;
    if (g.clusterBytes < 2 * kEntryBytes || g.highestCluster < layout::fat_table::kFirstDataCluster) return out;
    const size_t perRead = std::max<size_t>(1, kReadBytes / g.clusterBytes);
    std::vector<uint8_t> buf(perRead * g.clusterBytes);
    const uint64_t total = uint64_t(g.highestCluster) - 1;
    for (uint64_t c = 2; c <= g.highestCluster && out.size() < limit;) {
        if (ctx) {
            if (ctx->MustStop(media)) break;
            ctx->Progress(int64_t(c - 2), int64_t(total));
        }
        size_t n = size_t(std::min<uint64_t>(perRead, uint64_t(g.highestCluster) - c + 1));
        uint64_t offset = vol.ClusterOffset(uint32_t(c));
        if (g.volumeEnd && offset >= g.volumeEnd) break;
        vol.ReadBytes(offset, buf.data(), n * g.clusterBytes);
        for (size_t i = 0; i < n && out.size() < limit; ++i) {
            const uint8_t* p = buf.data() + i * g.clusterBytes;
            if (IsDotEntry(p, false) && IsDotEntry(p + kEntryBytes, true)) out.push_back(uint32_t(c + i));
        }
        c += n;
    }
    return out;
}

Outcome SearchPreviousFileSystem(CPhysicalDisk& media, ScanContext& ctx) {
    if (!ctx.top) return Outcome::Ok;
    WalkWatch watch(media);
    const FsKind current = CurrentKind(media);
    const uint64_t count = media.GetSectorCount();
    const PartitionRecord saved = media.GetPartitionParams();
    const FsKind savedKind = media.GetFsKind();

    // NTFS records survive a quick format (the new MFT overwrites only its first records) and
    // also a FAT format over an old NTFS volume.
    std::unique_ptr<CNode> scratch(MakeTopNode());
    ScanContext inner{ctx.op, ctx.events, ctx.gate, ctx.mode, scratch.get(), ctx.signatures};
    if (current != FsKind::Ntfs) {
        // The record search must not take the current FAT geometry for the old volume's.
        PartitionRecord r;
        r.fsKind = FsKind::Ntfs;
        r.startSector = media.GetFirstSector();
        r.length = count;
        r.partitionFlag = PartitionFlag::TableOnly;
        media.SetPartitionParams(r);
    }
    media.SetFsKind(FsKind::Ntfs);
    Outcome searched = NtfsSearchRecords(media, 0, count, inner);
    if (TreeHasItems(scratch.get())) {
        MoveVolumeRoots(scratch.get(), ctx.top);
        return searched;
    }
    media.SetPartitionParams(saved);
    media.SetFsKind(savedKind);
    if (Ends(searched)) return searched;

    if (current == FsKind::Fat16 || current == FsKind::Fat32) {
        media.SetFsKind(current);
        std::vector<uint32_t> folders = FindFatFolderClusters(media, &ctx);
        if (!ctx.MustStop(media)) return FatRebuildFolders(media, folders, ctx);
    }
    return watch.Finish(ctx);
}

} // namespace kestrin
