// The FAT16/FAT32/exFAT folder walk on an image, as the driver runs it: the whole scan into a
// found-item tree. The image comes from the environment (the benchmark images are not part of
// the repository):
//   KESTRIN_BENCH_FAT_IMAGE=IMG [KESTRIN_BENCH_FAT_START=SECTOR] [KESTRIN_BENCH_FAT_KIND=fat16|fat32|exfat]
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "job/QuietScanEvents.h"
#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "fs/exfat/ExFatEngine.h"
#include "fs/fat/FatEngine.h"
#include "job/ScanContext.h"
#include "storage/CPhysicalDisk.h"

namespace {

using namespace kestrin;

using NoEvents = QuietScanEvents;

std::string Env(const char* name) {
    const char* v = std::getenv(name);
    return v ? v : "";
}

void BM_FatFolderWalk(benchmark::State& state) {
    std::string image = Env("KESTRIN_BENCH_FAT_IMAGE");
    if (image.empty()) {
        state.SkipWithError("KESTRIN_BENCH_FAT_IMAGE is not set");
        return;
    }
    uint64_t start = std::strtoull(Env("KESTRIN_BENCH_FAT_START").c_str(), nullptr, 10);
    std::string kindName = Env("KESTRIN_BENCH_FAT_KIND");
    uint8_t kind = kindName == "fat16" ? kFsFat16 : kindName == "fat32" ? kFsFat32 : kindName == "exfat" ? kFsExFat : 0;
    uint64_t items = 0, deleted = 0;
    for (auto _ : state) {
        CPhysicalDisk media;
        if (!media.AttachImageFile(image)) {
            state.SkipWithError("cannot open the image");
            return;
        }
        uint64_t count = media.GetSectorCount();
        media.SetFirstSector(start);
        media.SetSectorCount(count > start ? count - start : 0);
        media.SetFsKind(kind);
        std::unique_ptr<CNode> top(MakeTopNode());
        ScanOperation op;
        op.state = OperationState::Running;
        NoEvents events;
        PauseGate gate;
        ScanContext ctx{op, events, gate};
        ctx.top = top.get();
        if (kind == kFsExFat)
            ExFatScanVolume(media, 1, ctx);
        else
            FatScanVolume(media, 1, ctx);
        items = deleted = 0;
        ForEachNode(top.get(), [&](CNode* n) {
            ++items;
            deleted += n->IsDeleted();
        });
        benchmark::DoNotOptimize(items);
    }
    state.counters["items"] = double(items);
    state.counters["deleted"] = double(deleted);
    state.SetItemsProcessed(int64_t(items) * state.iterations());
}
BENCHMARK(BM_FatFolderWalk)->Unit(benchmark::kMillisecond)->MinTime(1.0);

} // namespace
