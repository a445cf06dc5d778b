// NTFS record parsing speed: one record checked and parsed, and the whole MFT walk with folder
// rebuilding over an in-memory volume of 32,768 records.
#include <benchmark/benchmark.h>

#include <cstring>

#include "fs/ntfs/NtfsBuilder.h"
#include "fs/ntfs/NtfsTestSupport.h"
#include "fs/ntfs/NtfsRecord.h"
#include "storage/ByteSource.h"

using namespace kestrin;
using namespace kestrin::test;

namespace {

std::vector<uint8_t> TypicalRecord(uint32_t n, uint32_t parent) {
    std::u16string name = u"Quarterly report draft " + ToUtf16(std::to_string(n)) + u".docx";
    return RecordBuilder(n)
        .StdInfo()
        .FileName(parent, u"QUARTE~1.DOC", 2)
        .FileName(parent, name, 1)
        .NonResident(0x80, EncodeRuns({{3, 1000 + n}, {2, 77}}), 5 * 4096 - 300, 0, 4)
        .Finish();
}

void BM_CheckAndParseRecord(benchmark::State& state) {
    const auto templ = TypicalRecord(1234, 64);
    std::vector<uint8_t> rec(templ.size());
    for (auto _ : state) {
        std::memcpy(rec.data(), templ.data(), rec.size());
        ScanEntry e;
        bool ok = CheckFileRecord(rec, 1024) && ParseFileRecord(rec, e, 0, nullptr);
        benchmark::DoNotOptimize(ok);
        benchmark::DoNotOptimize(e.size);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CheckAndParseRecord);

void BM_MftWalk(benchmark::State& state) {
    const uint32_t records = 32768, folders = 64;
    const uint64_t mftCluster = 16, clusters = mftCluster + records / 4 + 64;
    std::vector<uint8_t> image(clusters * 4096, 0);
    {
        VolumeBuilder v(32);
        std::memcpy(image.data(), v.Image().data(), 512);
        PutLe64(image.data() + 0x28, clusters * 8 - 1);
        PutLe64(image.data() + 0x30, mftCluster);
    }
    auto put = [&](uint32_t n, const std::vector<uint8_t>& r) {
        std::memcpy(image.data() + mftCluster * 4096 + uint64_t(n) * 1024, r.data(), r.size());
    };
    put(0, RecordBuilder(0).StdInfo().FileName(5, u"$MFT")
               .NonResident(0x80, EncodeRuns({{records / 4, int64_t(mftCluster)}}), records * 1024ull, 0, records / 4 - 1)
               .Finish());
    put(5, RecordBuilder(5, 3).StdInfo().FileName(5, u".").Finish());
    for (uint32_t f = 0; f < folders; ++f)
        put(64 + f, RecordBuilder(64 + f, 3).StdInfo().FileName(5, u"Folder " + ToUtf16(std::to_string(f))).IndexRoot({}).Finish());
    for (uint32_t n = 64 + folders; n < records; ++n) put(n, TypicalRecord(n, 64 + n % folders));
    for (auto _ : state) {
        state.PauseTiming();
        CPhysicalDisk media;
        media.Attach(std::make_unique<MemorySource>(image.data(), image.size()));
        media.SetSectorSize(512);
        media.SetSectorCount(image.size() / 512);
        auto h = std::make_unique<ScanHarness>();
        state.ResumeTiming();
        NtfsScanVolume(media, 1, h->ctx);
        benchmark::DoNotOptimize(h->Volume());
        state.PauseTiming();
        h.reset(); // freeing the tree is not part of the walk
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * records);
}
BENCHMARK(BM_MftWalk)->Unit(benchmark::kMillisecond);

} // namespace
