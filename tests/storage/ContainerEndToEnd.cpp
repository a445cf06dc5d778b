// The kestrin program on containers: every format lists the same tree as its raw twin and saves
// the same files; damaged containers and orphaned children are refused with exit code 1 and a
// message, and the container is never written.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>

#include "ContainerFixtures.h"
#include "TestImages.h"
#include "cli/CliRun.h"

namespace {

namespace fs = std::filesystem;
using kestrin::test::ContainerFixture;

using Outcome = kestrin::test::CliResult;

Outcome Shell(const std::string& command) { return kestrin::test::RunShell(command); }
std::string Q(const std::string& s) { return kestrin::test::Quote(s); }
Outcome Kestrin(const std::string& args) { return kestrin::test::RunKestrin(args); }

std::string Sha256Of(const std::string& path) { return Shell("sha256sum " + Q(path)).out.substr(0, 64); }

// The scan's JSON without the source's path, which is all that may differ.
nlohmann::json Tree(const std::string& image, const std::string& mode = "deleted-files") {
    Outcome r = Kestrin("scan " + Q(image) + " --mode " + mode + " --quiet --json -");
    EXPECT_EQ(r.exitCode, 0) << image << ": " << r.err;
    nlohmann::json j = nlohmann::json::parse(r.out, nullptr, false);
    if (j.is_discarded()) return {};
    j["source"].erase("path");
    return j;
}

// SHA-256 of every file saved from `image`, by path inside the output folder.
std::map<std::string, std::string> Saved(const std::string& image, const fs::path& to) {
    fs::remove_all(to);
    Outcome r = Kestrin("recover " + Q(image) + " --quiet --to " + Q(to.string()));
    EXPECT_EQ(r.exitCode, 0) << image << ": " << r.err;
    std::map<std::string, std::string> out;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(to, ec); it != fs::recursive_directory_iterator(); ++it) {
        if (!it->is_regular_file()) continue;
        out[fs::relative(it->path(), to).string()] = Sha256Of(it->path().string());
    }
    fs::remove_all(to);
    return out;
}

} // namespace

TEST(ContainerEndToEnd, EveryFormatListsAndSavesLikeItsRawTwin) {
    std::map<std::string, nlohmann::json> rawTrees, rawContent;
    std::map<std::string, std::map<std::string, std::string>> rawSaved;
    fs::path work = fs::path(KESTRIN_BINARY_DIR) / ("container-e2e." + std::to_string(::getpid()));
    int checked = 0;
    for (const ContainerFixture& c : kestrin::test::ContainerFixtures()) {
        if (c.twin.empty()) continue;
        SCOPED_TRACE(c.file);
        std::string twin = c.twin.substr(0, c.twin.size() - 4);
        if (!rawTrees.count(twin)) {
            std::string raw = kestrin::test::UnpackImage(twin);
            ASSERT_FALSE(raw.empty());
            rawTrees[twin] = Tree(raw);
            rawContent[twin] = Tree(raw, "lost-files");
            rawSaved[twin] = Saved(raw, work / "raw");
            ASSERT_FALSE(rawSaved[twin].empty());
        }
        std::string path = kestrin::test::UnpackFixture(c);
        ASSERT_FALSE(path.empty());
        EXPECT_EQ(Tree(path), rawTrees[twin]);
        // The search by content skips what a container leaves unallocated: it finds the same.
        EXPECT_EQ(Tree(path, "lost-files"), rawContent[twin]);
        EXPECT_EQ(Saved(path, work / "c"), rawSaved[twin]);
        EXPECT_EQ(Sha256Of(path), c.sha256); // read, never written
        ++checked;
    }
    fs::remove_all(work);
    EXPECT_GE(checked, 16);
}

TEST(ContainerEndToEnd, PartitionsReportTheDisksSize) {
    for (const ContainerFixture& c : kestrin::test::ContainerFixtures()) {
        if (c.file != "fat16-small.vhdx" && c.file != "fat16-small-seg.E01") continue;
        Outcome r = Kestrin("partitions " + Q(kestrin::test::UnpackFixture(c)) + " --json");
        ASSERT_EQ(r.exitCode, 0) << r.err;
        nlohmann::json j = nlohmann::json::parse(r.out);
        EXPECT_EQ(j["source"]["sectorSize"], 512);
        EXPECT_EQ(j["source"]["sectorCount"], 32768); // 16 MiB, not the container file's size
        EXPECT_EQ(j["layout"], "volume");
    }
}

TEST(ContainerEndToEnd, UnopenableContainersAreRefusedWithAReason) {
    int refused = 0;
    for (const ContainerFixture& c : kestrin::test::ContainerFixtures()) {
        if (c.missingParent.empty() && c.damage.empty()) continue;
        SCOPED_TRACE(c.file);
        std::string path = kestrin::test::UnpackFixture(c);
        if (!c.missingParent.empty()) fs::remove(fs::path(path).parent_path() / c.missingParent);
        Outcome r = Kestrin("scan " + Q(path) + " --quiet --json -");
        EXPECT_LT(r.exitCode, 128) << r.err; // never a crash
        if (!c.missingParent.empty()) {
            EXPECT_EQ(r.exitCode, 1);
            EXPECT_NE(r.err.find(c.missingParent), std::string::npos) << r.err;
        }
        if (r.exitCode == 1) {
            EXPECT_NE(r.err.find(path), std::string::npos) << r.err;
            ++refused;
        }
    }
    EXPECT_EQ(refused, 14);
}

// A further segment or an extent of the source is the source: no output may replace it.
TEST(ContainerEndToEnd, OutputsNeverReplaceAPartOfTheSource) {
    for (const ContainerFixture& c : kestrin::test::ContainerFixtures()) {
        if (c.parts.empty()) continue;
        SCOPED_TRACE(c.file);
        std::string path = kestrin::test::UnpackFixture(c);
        std::string part = (fs::path(path).parent_path() / c.parts.back()).string();
        std::string before = Sha256Of(part);
        Outcome r = Kestrin("scan " + Q(path) + " --quiet --overwrite --json " + Q(part));
        EXPECT_EQ(r.exitCode, 1);
        r = Kestrin("image " + Q(path) + " " + Q(part) + " --quiet --overwrite");
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(Sha256Of(part), before);
    }
}
