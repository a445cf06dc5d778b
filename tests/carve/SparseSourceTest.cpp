// The scan over a source with holes, and carved content handed to a sink that copies runs itself.
#include <gtest/gtest.h>

#include <mutex>

#include "carve/CarveTestUtil.h"
#include "carve/ScanSignatures.h"
#include "fs/CNode.h"
#include "fs/VolumeTree.h"

namespace kestrin::test {
namespace {

constexpr uint64_t kMiB = 1 << 20;
constexpr uint64_t kSector = 512;

// Memory with declared data runs; everything else is a hole (zeros). Records every byte range
// read so a test can tell whether a hole was read.
class HoleySource final : public ByteSource {
public:
    HoleySource(std::vector<uint8_t> data, std::vector<std::pair<uint64_t, uint64_t>> runs)
        : m_source(std::move(data)), m_runs(std::move(runs)) {}
    long long ReadAt(void* buf, size_t len, uint64_t offset) override {
        std::lock_guard lk(m_mutex);
        reads.emplace_back(offset, offset + len);
        return m_source.ReadAt(buf, len, offset);
    }
    uint64_t Size() const override { return m_source.Size(); }
    void DataRun(uint64_t offset, uint64_t& start, uint64_t& end) const override {
        for (auto [a, b] : m_runs)
            if (offset < b) {
                start = std::max(a, offset);
                end = b;
                return;
            }
        start = end = UINT64_MAX;
    }
    bool ReadInside(uint64_t from, uint64_t to) const {
        for (auto [a, b] : reads)
            if (a < to && from < b) return true;
        return false;
    }
    std::vector<std::pair<uint64_t, uint64_t>> reads;

private:
    MemorySource m_source;
    std::vector<std::pair<uint64_t, uint64_t>> m_runs;
    std::mutex m_mutex;
};

const std::vector<uint8_t> kMagic = {'H', 'O', 'L', 'E'};

// Finds in holes nothing (they are zeros), and finds in the data runs what a scan of the same
// bytes without hole information finds, in the same order; the holes are never read.
TEST(SparseSource, ScanSkipsHolesAndFindsTheSame) {
    std::vector<uint8_t> image(48 * kMiB, 0);
    const std::vector<std::pair<uint64_t, uint64_t>> runs = {{0, kMiB}, {20 * kMiB, 21 * kMiB + 4096},
                                                             {47 * kMiB, 48 * kMiB}};
    for (auto [a, b] : runs)
        for (uint64_t at = a; at + kSector <= b; at += 37 * kSector) {
            std::copy(kMagic.begin(), kMagic.end(), image.begin() + ptrdiff_t(at));
            image[at + 4] = uint8_t(at >> 9);
        }
    auto scan = [&](ScanRun& run, std::unique_ptr<ByteSource> source) {
        AttachMemory(run.disk, std::move(source));
        run.rows = {UserRecord(kMagic, ".hol", 2 * kSector)};
        EXPECT_EQ(run.Run(), Outcome::Ok);
        return run.Files();
    };
    ScanRun plainRun, sparseRun; // the source lives as long as its run
    auto plain = scan(plainRun, std::make_unique<MemorySource>(image));
    auto holey = std::make_unique<HoleySource>(image, runs);
    HoleySource* h = holey.get();
    auto sparse = scan(sparseRun, std::move(holey));
    EXPECT_GT(plain.size(), 100u);
    EXPECT_EQ(sparse, plain);
    EXPECT_FALSE(h->ReadInside(kMiB, 20 * kMiB));
    EXPECT_FALSE(h->ReadInside(22 * kMiB, 47 * kMiB));
    EXPECT_TRUE(h->ReadInside(47 * kMiB, 48 * kMiB));
}

// A sink that copies runs by their place on the source. Whole runs are copied; the short run at
// the end of the source is read, so its bytes past the end count as before; a refused copy falls
// back to reading; a stop during a copy ends the content.
TEST(SparseSource, CarvedContentCopiesWholeRunsThroughTheSink) {
    std::vector<uint8_t> image(5 * kMiB + 700);
    for (size_t i = 0; i < image.size(); ++i) image[i] = uint8_t(i * 13 + (i >> 12));
    CPhysicalDisk disk;
    AttachMemory(disk, std::make_unique<MemorySource>(image));
    std::unique_ptr<CNode> top(MakeTopNode());

    for (int mode = 0; mode < 3; ++mode) { // 0 copies, 1 refuses, 2 stops after the first copy
        CNode* n = AddCarvedFile(top.get(), u"x" + std::u16string(1, char16_t('0' + mode)), 3, 5 * kMiB, 10);
        std::vector<uint8_t> got;
        int copies = 0;
        ContentSink sink(
            [&](const uint8_t* p, size_t len) {
                got.insert(got.end(), p, p + len);
                return true;
            },
            [&](ByteSource& src, uint64_t offset, size_t len) {
                if (mode == 1) return ContentSink::Copy::NotDone;
                std::vector<uint8_t> buf(len);
                EXPECT_EQ(src.ReadAt(buf.data(), len, offset), (long long)len);
                got.insert(got.end(), buf.begin(), buf.end());
                ++copies;
                return mode == 2 ? ContentSink::Copy::Stop : ContentSink::Copy::Done;
            });
        ContentResult r = CarvedWriteContent(disk, *n, sink);
        if (mode == 2) {
            EXPECT_FALSE(r.ok);
            EXPECT_EQ(copies, 1);
            EXPECT_EQ(r.written, 0u);
            continue;
        }
        // 5 MiB from sector 3: two whole 2 MiB runs, then a run that ends past the source.
        const uint64_t start = 3 * kSector + 10, available = image.size() - 3 * kSector;
        EXPECT_EQ(copies, mode == 0 ? 2 : 0);
        EXPECT_FALSE(r.ok);
        EXPECT_EQ(r.beyondVolume, 5 * kMiB - available);
        EXPECT_EQ(r.written, available - 10);
        EXPECT_EQ(got, std::vector<uint8_t>(image.begin() + ptrdiff_t(start), image.end()));
    }
}

} // namespace
} // namespace kestrin::test
