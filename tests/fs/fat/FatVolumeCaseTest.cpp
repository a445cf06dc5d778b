// FAT volumes made by mkfs.fat and mtools that hold ordinary damage or ordinary contents the walk
// used to lose (scripts/fixtures/make-volume-case-fixtures).
#include <gtest/gtest.h>

#include "fs/fat/FatEngine.h"
#include "fs/fat/VolumeCaseCheck.h"

namespace kestrin::test {
namespace {

// ".." of loop and of outer/inner names the folder itself: the folders keep their entries, and the
// self-reference does not make the walk go round.
TEST(FatVolumeCase, DotDotNamingTheFolderItselfKeepsItsEntries) {
    nlohmann::json m;
    auto v = ScanCase("fat16-dotdot-self", FsKind::Fat16, FatScanVolume, m);
    if (!v) GTEST_SKIP() << "fat16-dotdot-self not available";
    ASSERT_TRUE(v->root);
    EXPECT_EQ(CaseProblems(*v, m, FatWriteContent), std::vector<std::string>());
    EXPECT_EQ(Flatten(v->root).size(), m["files"].size());
}

// A folder of 512 empty files, and empty files deleted: every one listed, size 0, read as empty.
TEST(FatVolumeCase, EmptyFilesAreListed) {
    nlohmann::json m;
    auto v = ScanCase("fat16-empty", FsKind::Fat16, FatScanVolume, m);
    if (!v) GTEST_SKIP() << "fat16-empty not available";
    EXPECT_EQ(CaseProblems(*v, m, FatWriteContent), std::vector<std::string>());
}

} // namespace
} // namespace kestrin::test
