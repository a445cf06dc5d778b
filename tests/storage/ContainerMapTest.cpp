// The holes a container's allocation tables leave: never where its disk holds a non-zero byte,
// and present where the disk was left unwritten; an entry whose meaning is not certain is data.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "ContainerFixtures.h"
#include "TestImages.h"
#include "storage/ContainerLayout.h"
#include "storage/ContainerMap.h"
#include "storage/ContainerSource.h"

using namespace kestrin;
using kestrin::test::ContainerFixture;

namespace {

struct Walk {
    uint64_t holes = 0;
    bool ordered = true; // every run starts at or after the offset asked and is not empty
};

// Every run of `src` from 0; `onHole(from, to)` for each stretch between runs.
template <typename OnHole>
Walk WalkRuns(const ByteSource& src, OnHole onHole) {
    Walk w;
    const uint64_t size = src.Size();
    uint64_t at = 0;
    for (int guard = 0; at < size && guard < 1000000; ++guard) {
        uint64_t s, e;
        src.DataRun(at, s, e);
        s = std::min(s, size);
        if (s < at || (s < size && e <= s)) {
            w.ordered = false;
            break;
        }
        if (s > at) onHole(at, s);
        w.holes += s - at;
        at = std::min(e, size);
    }
    return w;
}

} // namespace

// QCOW2, sparse VMDK and dynamic VHD skip what their tables leave unallocated, and only that:
// every byte of a hole is zero in the raw twin. The other formats (fixed disks, flat extents)
// have no holes to give.
TEST(ContainerMap, HolesOfEveryFixtureAreZerosOfItsTwin) {
    int mapped = 0;
    std::map<std::string, uint64_t> holes;
    for (const ContainerFixture& c : kestrin::test::ContainerFixtures()) {
        if (c.twin.empty()) continue;
        SCOPED_TRACE(c.file);
        std::string path = kestrin::test::UnpackFixture(c);
        ASSERT_FALSE(path.empty());
        std::vector<uint8_t> raw =
            kestrin::test::ReadWhole(kestrin::test::UnpackImage(c.twin.substr(0, c.twin.size() - 4)));
        ContainerFormat format;
        ContainerProblem problem;
        auto src = OpenContainerFile(path, format, problem);
        ASSERT_TRUE(src) << problem.detail;
        ASSERT_EQ(src->Size(), raw.size());
        const bool sparse = c.format == "qcow2" || c.format == "vhd" ||
                            (c.format == "vmdk" && c.file.find("-split") == std::string::npos);
        EXPECT_EQ(src->HasMap(), sparse);
        size_t nonZero = 0;
        Walk w = WalkRuns(*src, [&](uint64_t from, uint64_t to) {
            nonZero += size_t(std::count_if(raw.begin() + from, raw.begin() + to, [](uint8_t b) { return b != 0; }));
        });
        EXPECT_TRUE(w.ordered);
        EXPECT_EQ(nonZero, 0u);
        if (!sparse) {
            EXPECT_EQ(w.holes, 0u);
        }
        holes[c.format] += w.holes;
        mapped += sparse;
    }
    EXPECT_EQ(mapped, 9);
    // Most of the twins' space was never written (a dynamic VHD's 2 MiB blocks catch less).
    for (const char* format : {"qcow2", "vmdk", "vhd"}) EXPECT_GT(holes[format], 8u << 20) << format;
}

// Damaged containers that still open give ordered runs inside the disk (or none): the walk ends.
TEST(ContainerMap, DamagedContainersGiveOrderedRuns) {
    for (const ContainerFixture& c : kestrin::test::ContainerFixtures()) {
        if (c.damage.empty()) continue;
        SCOPED_TRACE(c.file);
        ContainerFormat format;
        ContainerProblem problem;
        auto src = OpenContainerFile(kestrin::test::UnpackFixture(c), format, problem);
        if (!src) continue;
        EXPECT_TRUE(WalkRuns(*src, [](uint64_t, uint64_t) {}).ordered);
    }
}

// A QCOW2 image built by hand, 512-byte clusters: the entries whose meaning is not a plain
// "unallocated" count as data, and a table outside the file makes its whole span data.
TEST(ContainerMap, QcowEntriesOfUncertainMeaningAreData) {
    namespace q = layout::qcow;
    constexpr uint64_t kCluster = 512, kDisk = 64 * 1024; // two L2 tables of 64 entries
    std::vector<uint8_t> img(4 * kCluster, 0);
    uint8_t* h = img.data();
    std::memcpy(h, "QFI\xfb", 4);
    q::Version::Put(h, 3);
    q::ClusterBits::Put(h, 9);
    q::DiskSize::Put(h, kDisk);
    q::L1Size::Put(h, 2);
    q::L1TableOffset::Put(h, kCluster);
    PutBe64(img.data() + kCluster, q::kCopiedFlag | 2 * kCluster); // L1[0]: the L2 table
    PutBe64(img.data() + kCluster + 8, 1ull << 40);                 // L1[1]: past the file's end
    uint8_t* l2 = img.data() + 2 * kCluster;
    PutBe64(l2 + 1 * 8, 1ull << 62);                       // compressed
    PutBe64(l2 + 2 * 8, q::kZeroFlag);                     // zero, no cluster: a hole
    PutBe64(l2 + 3 * 8, q::kZeroFlag | 3 * kCluster);      // zero, preallocated
    PutBe64(l2 + 4 * 8, q::kCopiedFlag);                   // nothing but the copied flag: a hole
    PutBe64(l2 + 5 * 8, q::kCopiedFlag | 3 * kCluster);    // plain data
    auto open = [&](std::vector<uint8_t> bytes) {
        return ContainerMap::Qcow(std::make_unique<MemorySource>(std::move(bytes)), kDisk);
    };
    auto map = open(img);
    ASSERT_TRUE(map);
    uint64_t s, e;
    map->DataRun(0, s, e);
    EXPECT_EQ(s, 1 * kCluster);
    EXPECT_EQ(e, 2 * kCluster);
    map->DataRun(2 * kCluster, s, e);
    EXPECT_EQ(s, 3 * kCluster);
    EXPECT_EQ(e, 4 * kCluster);
    map->DataRun(4 * kCluster + 100, s, e);
    EXPECT_EQ(s, 5 * kCluster);
    EXPECT_EQ(e, 6 * kCluster);
    map->DataRun(6 * kCluster, s, e);
    EXPECT_EQ(s, 64 * kCluster);
    EXPECT_EQ(e, kDisk);
    map->DataRun(kDisk, s, e);
    EXPECT_EQ(s, UINT64_MAX);

    // Not mapped at all: a backing file, an incompatible feature not known here, a size that is
    // not the disk's, an L1 table too short for the disk.
    std::vector<uint8_t> bad = img;
    q::BackingFileOffset::Put(bad.data(), 3 * kCluster);
    EXPECT_FALSE(open(bad));
    bad = img;
    q::IncompatibleFeatures::Put(bad.data(), 1u << 4);
    EXPECT_FALSE(open(bad));
    bad = img;
    q::DiskSize::Put(bad.data(), kDisk * 2);
    EXPECT_FALSE(open(bad));
    bad = img;
    q::L1Size::Put(bad.data(), 1);
    EXPECT_FALSE(open(bad));
}
