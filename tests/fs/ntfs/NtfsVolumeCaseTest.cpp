// NTFS volumes made by mkntfs and ntfs-3g that hold ordinary contents the scan used to lose
// (scripts/fixtures/make-volume-case-fixtures).
#include <gtest/gtest.h>

#include <set>

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

// One record with 20 names in two folders: every name is an item of the record's content; the DOS
// twin of a long name is no item; a deleted record lists under the name it kept.
TEST(NtfsVolumeCase, EveryHardLinkIsListed) {
    nlohmann::json m;
    auto v = ScanCase("ntfs-hardlinks", FsKind::Ntfs, NtfsScanVolume, m);
    if (!v) GTEST_SKIP() << "ntfs-hardlinks not available";
    EXPECT_EQ(CaseProblems(*v, m, NtfsWriteContent), std::vector<std::string>());
    auto found = Flatten(v->root);
    EXPECT_EQ(found.count("ALONGF~1.TXT"), 0u);
    std::set<uint64_t> records;
    for (const auto& item : m["files"]) {
        auto it = found.find(item["path"].get<std::string>());
        if (item.value("record", "") == "shared" && it != found.end()) records.insert(it->second->location);
    }
    EXPECT_EQ(records.size(), 1u);
}

// Named data streams of files and of a folder are listed as "name:stream" beside their file and
// read back as the stream's bytes; the system files' streams ($Secure's, $UpCase's) are not.
TEST(NtfsVolumeCase, NamedStreamsAreListedBesideTheirFile) {
    nlohmann::json m;
    auto v = ScanCase("ntfs-streams", FsKind::Ntfs, NtfsScanVolume, m);
    if (!v) GTEST_SKIP() << "ntfs-streams not available";
    EXPECT_EQ(CaseProblems(*v, m, NtfsWriteContent), std::vector<std::string>());
    std::set<std::string> streams, want;
    for (const auto& [path, n] : Flatten(v->root))
        if (path.find(':') != std::string::npos) {
            streams.insert(path);
            EXPECT_TRUE(n->flags & kNodeNtfsStream) << path;
        }
    for (const auto& item : m["files"])
        if (item.value("stream", false)) want.insert(item["path"].get<std::string>());
    EXPECT_EQ(streams, want);
}

} // namespace
} // namespace kestrin::test
