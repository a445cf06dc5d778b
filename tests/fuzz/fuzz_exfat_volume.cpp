// Whole exFAT volume scans over an image in memory (after one byte that is not used), then the
// content of every file found.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "job/QuietScanEvents.h"
#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "fs/exfat/ExFatEngine.h"
#include "job/ScanContext.h"
#include "storage/CPhysicalDisk.h"
#include "storage/ByteSource.h"

using namespace kestrin;

namespace {
using NoEvents = QuietScanEvents;
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    CPhysicalDisk media;
    media.Attach(std::make_unique<MemorySource>(data + 1, size - 1));
    media.SetSectorSize(512);
    media.SetSectorCount((size - 1) / 512);
    media.SetFsKind(FsKind::ExFat);
    std::unique_ptr<CNode> top(MakeTopNode());
    ScanOperation op;
    op.state = OperationState::Running;
    NoEvents events;
    PauseGate gate;
    ScanContext ctx{op, events, gate};
    ctx.top = top.get();
    ExFatScanVolume(media, 1, ctx);
    int files = 0;
    ForEachNode(top.get(), [&](CNode* n) {
        if (n->IsFolder() || ++files > 64) return;
        auto sink = [](const uint8_t*, size_t) { return true; };
        ExFatWriteContent(media, *n, sink);
    });
    if (CNode* vol = FindVolumeRoot(top.get())) ExFatJudgeConditions(media, *vol, {});
    return 0;
}
