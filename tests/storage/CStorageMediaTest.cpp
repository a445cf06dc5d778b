#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "storage/CPhysicalDisk.h"

using namespace kestrin;

namespace {
std::unique_ptr<MemorySource> Numbered(size_t sectors, uint32_t ss = 512) {
    std::vector<uint8_t> d(sectors * ss);
    for (size_t i = 0; i < d.size(); ++i) d[i] = uint8_t(i / ss);
    return std::make_unique<MemorySource>(std::move(d));
}
} // namespace

TEST(CStorageMedia, SeekAndNoSeekReads) {
    CPhysicalDisk disk;
    disk.Attach(Numbered(8));
    disk.SetSectorSize(512);
    uint8_t buf[512];
    ASSERT_TRUE(disk.ReadSectors(buf, 512, 3, true));
    EXPECT_EQ(buf[0], 3);
    ASSERT_TRUE(disk.ReadSectors(buf, 512, 0, false)); // continues at sector 4
    EXPECT_EQ(buf[0], 4);
    // A short read at the end succeeds and leaves the rest of the buffer as it was.
    std::fill(std::begin(buf), std::end(buf), 0xEE);
    uint8_t big[1024];
    std::fill(std::begin(big), std::end(big), 0xEE);
    ASSERT_TRUE(disk.ReadSectors(big, 1024, 7, true));
    EXPECT_EQ(big[0], 7);
    EXPECT_EQ(big[600], 0xEE);
}

TEST(CStorageMedia, FailedReadKeepsRecordedErrorCode) {
    CPhysicalDisk disk;
    auto src = Numbered(8);
    src->FailReadsAt(1024, 512);
    disk.Attach(std::move(src));
    disk.SetSectorSize(512);
    uint8_t buf[512];
    EXPECT_FALSE(disk.ReadSectors(buf, 512, 2, true));
    EXPECT_EQ(disk.GetLastError(), 0u);
    EXPECT_EQ(disk.ReadFailures(), 1u);
}

// A source that refuses reads smaller than its sector size.
class SectorSource final : public ByteSource {
public:
    SectorSource(uint32_t ss, bool alwaysFail) : m_ss(ss), m_fail(alwaysFail) {}
    long long ReadAt(void*, size_t len, uint64_t) override {
        ++attempts;
        if (m_fail || len % m_ss) return -1;
        return (long long)len;
    }
    uint64_t Size() const override { return 1 << 20; }
    int attempts = 0;

private:
    uint32_t m_ss;
    bool m_fail;
};

TEST(CStorageMedia, SectorSizeProbe) {
    CPhysicalDisk disk;
    auto s = std::make_unique<SectorSource>(4096, false);
    auto* raw = s.get();
    disk.Attach(std::move(s));
    ASSERT_TRUE(disk.ProbeSectorSize());
    EXPECT_EQ(disk.GetSectorSize(), 4096u);
    EXPECT_EQ(raw->attempts, 8);

    CPhysicalDisk dead;
    auto f = std::make_unique<SectorSource>(512, true);
    auto* rf = f.get();
    dead.Attach(std::move(f));
    EXPECT_FALSE(dead.ProbeSectorSize());
    EXPECT_EQ(rf->attempts, 129); // 512 ... 66,048
}

TEST(CPhysicalDisk, OpenRejectsPathsThatAreNeitherDigitNorLetter) {
    CPhysicalDisk disk;
    EXPECT_FALSE(disk.Open(u"?x"));
    EXPECT_FALSE(disk.Open(u""));
    EXPECT_FALSE(disk.IsOpen());
}

TEST(CPhysicalDisk, SplitImageReadsAcrossParts) {
    std::string dir = ::testing::TempDir();
    std::string stem = dir + "/kestrin_split.";
    for (int part = 1; part <= 3; ++part) {
        std::ofstream f(stem + "00" + std::to_string(part), std::ios::binary);
        std::vector<char> d(1000, char('a' + part));
        f.write(d.data(), std::streamsize(d.size()));
    }
    CPhysicalDisk disk;
    ASSERT_TRUE(disk.AttachImageFile(stem + "001"));
    EXPECT_EQ(disk.ByteSize(), 3000u);
    EXPECT_EQ(disk.GetSectorCount(), 5u);
    uint8_t buf[1024];
    ASSERT_TRUE(disk.ReadSectors(buf, 1024, 1, true)); // bytes 512..1535 span parts 1 and 2
    EXPECT_EQ(buf[0], 'b');
    EXPECT_EQ(buf[1000 - 512], 'c');
    for (int part = 1; part <= 3; ++part) std::remove((stem + "00" + std::to_string(part)).c_str());
}
