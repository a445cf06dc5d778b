// NTFS volumes made by mkntfs and ntfs-3g that hold ordinary contents the scan used to lose
// (scripts/fixtures/make-volume-case-fixtures).
#include <gtest/gtest.h>

#include "fs/fat/VolumeCaseCheck.h"
#include "fs/ntfs/NtfsEngine.h"

namespace kestrin::test {
namespace {

// A folder of 512 empty files, and empty files deleted: every one listed, size 0, read as empty.
TEST(NtfsVolumeCase, EmptyFilesAreListed) {
    nlohmann::json m;
    auto v = ScanCase("ntfs-empty", FsKind::Ntfs, NtfsScanVolume, m);
    if (!v) GTEST_SKIP() << "ntfs-empty not available";
    EXPECT_EQ(CaseProblems(*v, m, NtfsWriteContent), std::vector<std::string>());
}

} // namespace
} // namespace kestrin::test
