// The signature loop's speed over an in-memory source: the full shipped table against noise,
// text, zeros and a sprinkling of real JPEGs; JPEG and office documents over the same bytes with
// documents in place of the JPEGs; next to the bare chunked read of the same bytes.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>

#include "job/QuietScanEvents.h"
#include "carve/ScanSignatures.h"
#include "carve/SignatureList.h"
#include "carve/SignatureTable.h"
#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "job/ScanContext.h"
#include "storage/ByteSource.h"
#include "storage/CPhysicalDisk.h"

namespace {

using namespace kestrin;

const std::filesystem::path kRepo = std::filesystem::path(__FILE__).parent_path().parent_path();

using NoEvents = QuietScanEvents;

// 128 MiB: a quarter each of random bytes, zeros, text and random bytes again, with a real
// JPEG every 2 MiB.
const std::vector<uint8_t>& Image() {
    static std::vector<uint8_t> image = [] {
        const size_t size = 128u << 20;
        std::vector<uint8_t> v(size);
        std::mt19937_64 rng(42);
        const char* text = "The quick brown fox jumps over the lazy dog. 0123456789\n";
        for (size_t i = 0; i < size; i += 8) {
            size_t quarter = i / (size / 4);
            uint64_t r = quarter == 1 ? 0 : rng();
            for (size_t k = 0; k < 8; ++k) v[i + k] = quarter == 2 ? uint8_t(text[(i + k) % 57]) : uint8_t(r >> (8 * k));
        }
        std::ifstream in(kRepo / "tests/carve/data/progressive-9414.jpg", std::ios::binary);
        std::vector<uint8_t> jpg{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        for (size_t at = 0; at + jpg.size() < size; at += 2u << 20) std::copy(jpg.begin(), jpg.end(), v.begin() + at);
        return v;
    }();
    return image;
}

std::vector<uint8_t> ReadFile(const char* name) {
    std::ifstream in(kRepo / "tests/carve/data" / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The same 128 MiB with office documents in place of the JPEGs, one every 256 KiB, Word and Excel
// by turns: the directory check of every hit walks on to the next document.
const std::vector<uint8_t>& DocumentImage() {
    static std::vector<uint8_t> image = [] {
        std::vector<uint8_t> v = Image();
        const std::vector<uint8_t> docs[2] = {ReadFile("libreoffice.doc"), ReadFile("libreoffice.xls")};
        int turn = 0;
        for (size_t at = 64u << 10; at + (1u << 20) < v.size(); at += 256u << 10, turn ^= 1)
            std::copy(docs[turn].begin(), docs[turn].end(), v.begin() + at);
        return v;
    }();
    return image;
}

void RunLoop(benchmark::State& state, const std::vector<uint8_t>& image, std::vector<SignatureRecord> rows) {
    CPhysicalDisk disk;
    disk.Attach(std::make_unique<MemorySource>(image.data(), image.size()));
    disk.SetSectorSize(512);
    disk.SetSectorCount(image.size() / 512);
    for (auto _ : state) {
        state.PauseTiming();
        ScanOperation op;
        op.state = OperationState::Running;
        NoEvents events;
        PauseGate gate;
        std::unique_ptr<CNode> top(MakeTopNode());
        ScanContext ctx{op, events, gate, kModeLostFiles, top.get(), &rows};
        state.ResumeTiming();
        ScanSignatures(disk, 2, 0, disk.GetSectorCount(), ctx);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(image.size()));
}

void BM_SignatureLoop(benchmark::State& state) {
    auto table = LoadSignatureTable((kRepo / "data/signatures.txt").string());
    RunLoop(state, Image(), FilterByMode(*table, kModeLostFiles));
}

void BM_SignatureLoopDocuments(benchmark::State& state) {
    auto table = LoadSignatureTable((kRepo / "data/signatures.txt").string());
    auto rows = FilterByExtensions(FilterByMode(*table, kModeLostFiles), SplitTypeList("jpg,doc,xls,ppt"));
    RunLoop(state, DocumentImage(), std::move(rows));
}

void BM_ChunkedReadOnly(benchmark::State& state) {
    const auto& image = Image();
    MemorySource src(image.data(), image.size());
    std::vector<uint8_t> buf(512 * 512);
    for (auto _ : state) {
        for (uint64_t at = 0; at < image.size(); at += buf.size()) src.ReadAt(buf.data(), buf.size(), at);
        benchmark::DoNotOptimize(buf.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(image.size()));
}

BENCHMARK(BM_SignatureLoop)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SignatureLoopDocuments)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ChunkedReadOnly)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
