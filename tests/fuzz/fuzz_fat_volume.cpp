// Whole-volume scans over an image in memory: FAT12, FAT16 or FAT32 by the first byte (which also
// picks the walk mode, the rebuild of an older file system's folders from every cluster, or the
// one-pass search for them with their old layout), then the content of every file found.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "job/QuietScanEvents.h"
#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "fs/fat/FatEngine.h"
#include "job/ScanContext.h"
#include "storage/ByteSource.h"

using namespace kestrin;

namespace {
using NoEvents = QuietScanEvents;
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const FsKind kind = data[0] & 0x10 ? FsKind::Fat12 : data[0] & 1 ? FsKind::Fat32 : FsKind::Fat16;
    CPhysicalDisk media;
    media.Attach(std::make_unique<MemorySource>(data + 1, size - 1));
    media.SetSectorSize(512);
    media.SetSectorCount((size - 1) / 512);
    media.SetFsKind(kind);
    std::unique_ptr<CNode> top(MakeTopNode());
    ScanOperation op;
    op.state = OperationState::Running;
    NoEvents events;
    PauseGate gate;
    ScanContext ctx{op, events, gate};
    ctx.top = top.get();
    if (data[0] & 8) {
        FatSearchPreviousFolders(media, ctx);
    } else if (data[0] & 4) {
        std::vector<uint32_t> every;
        for (uint32_t c = 2; c < 2 + (size - 1) / 512; ++c) every.push_back(c);
        FatRebuildFolders(media, every, ctx);
    } else {
        FatScanVolume(media, data[0] & 2 ? 0 : 1, ctx);
    }
    int files = 0;
    ForEachNode(top.get(), [&](CNode* n) {
        if (n->IsFolder() || ++files > 64) return;
        auto sink = [](const uint8_t*, size_t) { return true; };
        FatWriteContent(media, *n, sink);
    });
    if (CNode* vol = FindVolumeRoot(top.get())) FatJudgeConditions(media, *vol, {});
    return 0;
}
