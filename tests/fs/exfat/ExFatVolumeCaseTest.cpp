// exFAT volumes made by mkfs.exfat and exfat-fuse that hold ordinary contents the walk used to
// lose (scripts/fixtures/make-volume-case-fixtures).
#include <gtest/gtest.h>

#include "fs/exfat/ExFatEngine.h"
#include "fs/fat/VolumeCaseCheck.h"

namespace kestrin::test {
namespace {

// A folder of 512 empty files (first cluster 0), and empty files deleted: every one listed, size
// 0, read as empty.
TEST(ExFatVolumeCase, EmptyFilesAreListed) {
    nlohmann::json m;
    auto v = ScanCase("exfat-empty", FsKind::ExFat, ExFatScanVolume, m);
    if (!v) GTEST_SKIP() << "exfat-empty not available";
    EXPECT_EQ(CaseProblems(*v, m, ExFatWriteContent), std::vector<std::string>());
}

} // namespace
} // namespace kestrin::test
