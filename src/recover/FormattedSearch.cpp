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

// The FAT kind of the selected range from its boot sector (broad recognition), else the media's.
FsKind CurrentKind(CPhysicalDisk& media) {
    uint32_t ss = std::max<uint32_t>(media.GetSectorSize(), 512);
    std::vector<uint8_t> boot(ss, 0);
    media.ReadSectors(boot.data(), ss, media.GetFirstSector(), true);
    if (auto r = RecogniseVolume(media, Bytes(boot.data(), 512), media.GetSectorCount())) return r->fsKind;
    return media.GetFsKind();
}

} // namespace

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

    if (IsFatKind(current)) {
        media.SetFsKind(current);
        return FatSearchPreviousFolders(media, ctx);
    }
    return watch.Finish(ctx);
}

} // namespace kestrin
