// Holes of a sparse image file, as the byte source reports them.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "storage/ByteSource.h"
#include "storage/CStorageMedia.h"

namespace kestrin::test {
namespace {

constexpr uint64_t kMiB = 1 << 20;

class Media final : public CStorageMedia {
public:
    using CStorageMedia::CStorageMedia;
    bool Open(const std::u16string&) override { return false; }
};

// 16 MiB with data at [4, 5) MiB and [9 MiB, 9 MiB + 100): the runs come back rounded out to
// whole sectors, the last one reaching to the end of the file, and nothing after it. A file
// system that does not report holes gives one run of everything, which is also correct.
TEST(SparseFile, DataRunsSkipTheHoles) {
    char path[] = "/tmp/kestrin-sparse-XXXXXX";
    int fd = ::mkstemp(path);
    ASSERT_GE(fd, 0);
    std::vector<uint8_t> block(kMiB, 0x5A);
    ASSERT_EQ(::pwrite(fd, block.data(), kMiB, 4 * kMiB), ssize_t(kMiB));
    ASSERT_EQ(::pwrite(fd, block.data(), 100, 9 * kMiB), 100);
    ASSERT_EQ(::ftruncate(fd, 16 * kMiB), 0);
    ::close(fd);

    platform::File f;
    ASSERT_TRUE(f.OpenRead(path));
    Media media(std::make_unique<FileSource>(std::move(f)), 0, 16 * kMiB / 512, 512);
    uint64_t first, end;
    media.DataRunSectors(0, first, end);
    if (first == 0) {
        std::remove(path);
        GTEST_SKIP() << "the file system does not report holes";
    }
    EXPECT_EQ(first, 4 * kMiB / 512);
    EXPECT_EQ(end, 5 * kMiB / 512);
    media.DataRunSectors(end, first, end);
    EXPECT_LE(first, 9 * kMiB / 512);
    EXPECT_GT(end, 9 * kMiB / 512);
    EXPECT_LE(end, 16 * kMiB / 512);
    media.DataRunSectors(end, first, end);
    EXPECT_EQ(first, UINT64_MAX);
    // A read inside a hole still gives zeros: skipping is only an optimisation.
    std::vector<uint8_t> buf(512, 1);
    EXPECT_TRUE(media.ReadSectors(buf.data(), 512, 100, true));
    EXPECT_EQ(buf, std::vector<uint8_t>(512, 0));
    std::remove(path);
}

} // namespace
} // namespace kestrin::test
