// Virtual-disk and evidence containers read back the very bytes of the raw image they were made
// from; damaged ones and orphaned children fail to open with a reason, never crash.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <thread>

#include "ContainerFixtures.h"
#include "TestImages.h"
#include "storage/CPhysicalDisk.h"
#include "storage/ContainerSource.h"

using namespace kestrin;
using kestrin::test::ContainerFixture;

namespace {

ContainerFormat FormatOf(const std::string& name) {
    if (name == "ewf") return ContainerFormat::Ewf;
    if (name == "vhd" || name == "vhd-fixed") return ContainerFormat::Vhd;
    if (name == "vhdx") return ContainerFormat::Vhdx;
    if (name == "vmdk") return ContainerFormat::Vmdk;
    if (name == "qcow2") return ContainerFormat::Qcow;
    return ContainerFormat::None;
}

ContainerFormat Detect(const std::string& path) {
    platform::File f;
    if (!f.OpenRead(path, false)) return ContainerFormat::None;
    FileSource src(std::move(f));
    return DetectContainer(src);
}

std::string TwinPath(const ContainerFixture& c) {
    return kestrin::test::UnpackImage(c.twin.substr(0, c.twin.size() - 4)); // "NAME.img"
}

} // namespace

TEST(ContainerSource, DetectsByContentNotByName) {
    auto detect = [](std::vector<uint8_t> bytes) {
        MemorySource m(std::move(bytes));
        return DetectContainer(m);
    };
    std::vector<uint8_t> sector(1024, 0);
    EXPECT_EQ(detect(sector), ContainerFormat::None);
    EXPECT_EQ(detect({}), ContainerFormat::None);
    EXPECT_EQ(detect({'Q', 'F', 'I'}), ContainerFormat::None); // shorter than a signature
    auto at = [&](size_t offset, std::string_view magic) {
        std::vector<uint8_t> b = sector;
        std::memcpy(b.data() + offset, magic.data(), magic.size());
        return detect(b);
    };
    EXPECT_EQ(at(0, {"EVF\x09\x0d\x0a\xff\x00", 8}), ContainerFormat::Ewf);
    EXPECT_EQ(at(0, "vhdxfile"), ContainerFormat::Vhdx);
    EXPECT_EQ(at(0, "conectix"), ContainerFormat::Vhd);
    EXPECT_EQ(at(512, "conectix"), ContainerFormat::Vhd); // a fixed disk's footer, in its last 512
    EXPECT_EQ(at(511, "conectix"), ContainerFormat::None);
    EXPECT_EQ(at(0, "QFI\xfb"), ContainerFormat::Qcow);
    EXPECT_EQ(at(0, "KDMV"), ContainerFormat::Vmdk);
    EXPECT_EQ(at(0, "# Disk DescriptorFile"), ContainerFormat::Vmdk);
    EXPECT_EQ(at(1, "KDMV"), ContainerFormat::None);
}

// Every container, opened from its first file, holds its twin byte for byte, read in pieces that
// straddle segment, extent, block and cluster boundaries; the media sees it as the twin's disk.
TEST(ContainerSource, EveryFormatReadsAsItsRawTwin) {
    int checked = 0;
    for (const ContainerFixture& c : kestrin::test::ContainerFixtures()) {
        if (c.twin.empty()) continue;
        SCOPED_TRACE(c.file);
        std::string path = kestrin::test::UnpackFixture(c);
        ASSERT_FALSE(path.empty());
        std::vector<uint8_t> raw = kestrin::test::ReadWhole(TwinPath(c));
        ASSERT_FALSE(raw.empty());
        ASSERT_EQ(Detect(path), FormatOf(c.format));
        ContainerProblem problem;
        auto src = ContainerSource::Open(path, FormatOf(c.format), problem);
        ASSERT_TRUE(src) << problem.detail;
        EXPECT_EQ(src->SectorSize(), 512u);
        ASSERT_EQ(src->Size(), raw.size());
        std::vector<uint8_t> buf(3 * 65536 + 512);
        for (uint64_t off = 0; off < raw.size(); off += buf.size()) {
            long long n = src->ReadAt(buf.data(), buf.size(), off);
            size_t want = std::min<size_t>(buf.size(), raw.size() - off);
            ASSERT_EQ(n, (long long)want) << "at " << off;
            ASSERT_EQ(std::memcmp(buf.data(), raw.data() + off, want), 0) << "at " << off;
        }
        EXPECT_EQ(src->ReadAt(buf.data(), buf.size(), raw.size()), 0);

        CPhysicalDisk disk;
        ASSERT_TRUE(disk.AttachImageFile(path));
        EXPECT_EQ(disk.GetSectorCount(), raw.size() / 512);
        std::vector<uint8_t> first(512);
        ASSERT_EQ(disk.Handle()->ReadAt(first.data(), first.size(), 0), 512);
        EXPECT_EQ(std::memcmp(first.data(), raw.data(), 512), 0);
        ++checked;
    }
    EXPECT_GE(checked, 16);
}

// The read-ahead thread and the engines read the same source at once.
TEST(ContainerSource, ConcurrentReadersGetTheirOwnBytes) {
    for (const ContainerFixture& c : kestrin::test::ContainerFixtures()) {
        if (c.file != "condition-ntfs.qcow2" && c.file != "condition-ntfs-seg.E01") continue;
        SCOPED_TRACE(c.file);
        std::string path = kestrin::test::UnpackFixture(c);
        std::vector<uint8_t> raw = kestrin::test::ReadWhole(TwinPath(c));
        ContainerProblem problem;
        auto src = ContainerSource::Open(path, FormatOf(c.format), problem);
        ASSERT_TRUE(src);
        std::atomic<int> wrong{0};
        auto reader = [&](uint64_t start, uint64_t step) {
            std::vector<uint8_t> b(4096 + 512);
            for (int round = 0; round < 4; ++round)
                for (uint64_t off = start; off + b.size() <= raw.size(); off += step)
                    if (src->ReadAt(b.data(), b.size(), off) != (long long)b.size() ||
                        std::memcmp(b.data(), raw.data() + off, b.size()) != 0)
                        ++wrong;
        };
        std::thread a(reader, 0, 65536 + 4096), b(reader, 1536, 32768 + 512);
        a.join();
        b.join();
        EXPECT_EQ(wrong.load(), 0);
    }
}

// A child whose parent is not there names it; with its parent beside it, it reads the parent's
// data where it holds none of its own; a parent that is not its own is refused.
TEST(ContainerSource, DifferencingImagesNeedTheirParent) {
    namespace fs = std::filesystem;
    int checked = 0;
    for (const ContainerFixture& c : kestrin::test::ContainerFixtures()) {
        if (c.missingParent.empty()) continue;
        SCOPED_TRACE(c.file);
        std::string path = kestrin::test::UnpackFixture(c);
        ASSERT_FALSE(path.empty());
        fs::path parent = fs::path(path).parent_path() / c.missingParent;
        std::error_code ec;
        fs::remove(parent, ec);
        ContainerProblem problem;
        EXPECT_FALSE(ContainerSource::Open(path, FormatOf(c.format), problem));
        EXPECT_EQ(problem.kind, ContainerProblem::Kind::MissingParent);
        EXPECT_EQ(problem.name, c.missingParent);

        // An 8 MiB image of the same format stands in for the parent: QCOW2 takes any backing
        // file, VHD and VMDK check that the parent is the one they were made from.
        std::string ext = fs::path(c.file).extension().string();
        std::string stand = kestrin::test::UnpackContainer("condition-ntfs" + ext);
        ASSERT_FALSE(stand.empty());
        fs::copy_file(stand, parent, ec);
        auto src = ContainerSource::Open(path, FormatOf(c.format), problem);
        if (c.format == "qcow2") {
            ASSERT_TRUE(src) << problem.detail;
            std::vector<uint8_t> raw = kestrin::test::ReadWhole(kestrin::test::UnpackImage("condition-ntfs"));
            std::vector<uint8_t> got(raw.size());
            ASSERT_EQ(src->ReadAt(got.data(), got.size(), 0), (long long)raw.size());
            EXPECT_TRUE(got == raw);
        } else {
            EXPECT_FALSE(src);
            EXPECT_EQ(problem.kind, ContainerProblem::Kind::Damaged);
            EXPECT_EQ(problem.name, c.missingParent);
            EXPECT_FALSE(problem.detail.empty());
        }
        fs::remove(parent, ec);
        ++checked;
    }
    EXPECT_EQ(checked, 3);
}

// Cut or overwritten containers: either they are refused with a reason, or what opens reads
// without crashing (bytes or a read error, never more than asked). A fixed VHD that lost its
// footer is plain raw data and opens as such.
TEST(ContainerSource, DamagedContainersFailCleanly) {
    int refused = 0, checked = 0;
    for (const ContainerFixture& c : kestrin::test::ContainerFixtures()) {
        if (c.damage.empty()) continue;
        SCOPED_TRACE(c.file);
        std::string path = kestrin::test::UnpackFixture(c);
        ASSERT_FALSE(path.empty());
        ++checked;
        CPhysicalDisk disk;
        if (!disk.AttachImageFile(path)) {
            ContainerFormat format;
            ContainerProblem problem;
            EXPECT_FALSE(OpenContainerFile(path, format, problem));
            EXPECT_NE(format, ContainerFormat::None);
            EXPECT_NE(problem.kind, ContainerProblem::Kind::None);
            ++refused;
            continue;
        }
        ByteSource* src = disk.Handle();
        ASSERT_TRUE(src);
        std::vector<uint8_t> buf(1 << 20);
        for (uint64_t off = 0; off < src->Size(); off += buf.size()) {
            long long n = src->ReadAt(buf.data(), buf.size(), off);
            EXPECT_LE(n, (long long)buf.size());
            if (n < 0) {
                EXPECT_NE(src->LastError(), 0u);
            }
        }
    }
    EXPECT_EQ(checked, 18);
    // Every E01 and dynamic VHD, the cut VHDX and QCOW2, both VMDKs whose embedded descriptor
    // is damaged and the one cut in half, which lost its name (its copy is named otherwise).
    EXPECT_EQ(refused, 11);
}
