// Output safety and honest results, end to end through the program: no output option can
// replace the source or an existing file without consent, bad options stop before any work, and
// every unreadable or unwritable byte shows in the exit code, the summary and the log.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "ScratchDir.h"
#include "TestImages.h"
#include "cli/CliRun.h"

namespace {

namespace fs = std::filesystem;

using kestrin::test::FileText;
using kestrin::test::Quote;
using kestrin::test::ScratchDir;
using Outcome = kestrin::test::CliResult;

// Runs `prefix kestrin args` through the shell (so tests can add redirections and limits).
Outcome Kestrin(const std::string& args, const std::string& shellPrefix = "") {
    return kestrin::test::RunKestrin(args, shellPrefix);
}

std::string Utf16File(const std::string& path) {
    std::string b = FileText(path), out;
    for (size_t i = 0; i + 1 < b.size(); i += 2) out += b[i + 1] ? '?' : b[i];
    return out;
}

class CliSafety : public ::testing::Test {
protected:
    ScratchDir s{"cli-safety"};
    std::string src;
    std::string original;
    void SetUp() override {
        std::string img = kestrin::test::UnpackImage("fat16-small");
        ASSERT_FALSE(img.empty());
        // A private copy named like an archive, so that --zip can name it too.
        src = s / "source.zip";
        fs::copy_file(img, src);
        original = FileText(src);
    }
    void ExpectSourceUntouched() { EXPECT_TRUE(FileText(src) == original) << "the source changed"; }
};

TEST_F(CliSafety, NoOutputOptionReachesTheSourceUnderAnyName) {
    fs::create_symlink(src, s / "link.zip");
    fs::create_hard_link(src, s / "hard.zip");
    const std::string names[] = {src, s / "link.zip", s / "hard.zip", "/proc/self/fd/3"};
    for (const std::string& name : names) {
        const std::string redirect = " 3<" + Quote(src);
        const std::string cmds[] = {
            "scan " + Quote(src) + " --quiet --json " + Quote(name),
            "scan " + Quote(src) + " --quiet --session " + Quote(name) + " --overwrite",
            "ls " + Quote(src) + " --quiet --json " + Quote(name) + " --overwrite",
            "recover " + Quote(src) + " --quiet --zip " + Quote(name) + " --overwrite",
            "recover " + Quote(src) + " --quiet --to " + Quote(name),
            "image " + Quote(src) + " " + Quote(name) + " --quiet --overwrite",
        };
        for (const std::string& c : cmds) {
            Outcome r = Kestrin(c + redirect);
            EXPECT_EQ(r.exitCode, 1) << c << "\n" << r.err;
            // (--zip refuses a name without .zip before it looks at the file at all.)
            if (name.ends_with(".zip") || c.find("--zip") == std::string::npos) {
                EXPECT_NE(r.err.find("source"), std::string::npos) << c << "\n" << r.err;
            }
        }
    }
    ExpectSourceUntouched();
    // Nothing but the source and its two links was made.
    size_t entries = 0;
    for (auto& e : fs::directory_iterator(s.path)) entries += (void(e), 1);
    EXPECT_EQ(entries, 3u);
}

TEST_F(CliSafety, ExistingFilesAreKeptWithoutOverwriteAndReplacedWithIt) {
    const std::string outs[] = {s / "out.json", s / "out.tks4", s / "out.zip", s / "out.img"};
    for (auto& o : outs) std::ofstream(o) << "mine";
    const std::string cmds[] = {
        "scan " + Quote(src) + " --quiet --json " + Quote(outs[0]),
        "scan " + Quote(src) + " --quiet --session " + Quote(outs[1]),
        "recover " + Quote(src) + " --quiet --zip " + Quote(outs[2]),
        "image " + Quote(src) + " " + Quote(outs[3]) + " --quiet",
    };
    for (auto& c : cmds) {
        Outcome r = Kestrin(c);
        EXPECT_EQ(r.exitCode, 1) << c << "\n" << r.err;
        EXPECT_NE(r.err.find("--overwrite"), std::string::npos) << r.err;
    }
    for (auto& o : outs) EXPECT_EQ(FileText(o), "mine") << o;
    for (auto& c : cmds) EXPECT_EQ(Kestrin(c + " --overwrite").exitCode, 0) << c;
    for (auto& o : outs) EXPECT_NE(FileText(o), "mine") << o;
    EXPECT_EQ(FileText(outs[3]), original);
    // No temporary is left beside any of them.
    for (auto& e : fs::directory_iterator(s.path))
        EXPECT_EQ(e.path().filename().string().find(".part"), std::string::npos) << e.path();
    ExpectSourceUntouched();
}

TEST_F(CliSafety, BadOptionsStopBeforeAnyWork) {
    struct Case {
        std::string args, says;
    } cases[] = {
        {"frobnicate " + Quote(src), "unknown command \"frobnicate\""},
        {"scan " + Quote(src) + " --json --quiet", "looks like an option"},
        {"scan " + Quote(src) + " --partition abc", "not a partition number"},
        {"scan " + Quote(src) + " --sector-size 4000", "not a sector size"},
        {"partitions " + Quote(src) + " --sector-size 256", "not a sector size"},
        {"image " + Quote(src) + " " + Quote(s / "x.img") + " --sector-size x", "not a sector size"},
        {"scan " + Quote(src) + " --partition all --session " + Quote(s / "x.tks4"), "one volume"},
        {"recover " + Quote(src) + " --partition all --zip " + Quote(s / "x.zip"), "one volume"},
        {"scan " + Quote(src) + " --json " + Quote(s / "missing/x.json"), "does not exist"},
        {"scan " + Quote(src) + " --session " + Quote(s / "missing/x.tks4"), "does not exist"},
        {"recover " + Quote(src) + " --zip " + Quote(s / "missing/x.zip"), "does not exist"},
        {"recover " + Quote(src) + " --iso " + Quote(s / "x.iso") + " --erase", "--erase goes with --burn"},
        {"recover " + Quote(s / "no-such.img") + " --to " + Quote(s / "made"), "No such file or directory"},
    };
    for (auto& c : cases) {
        Outcome r = Kestrin(c.args);
        EXPECT_EQ(r.exitCode, 1) << c.args;
        EXPECT_NE(r.err.find(c.says), std::string::npos) << c.args << "\n" << r.err;
        // Refused before the scan: no progress, no summary.
        EXPECT_EQ(r.out.find("Files"), std::string::npos) << c.args;
    }
    EXPECT_FALSE(fs::exists("--quiet"));
    EXPECT_FALSE(fs::exists(s / "made"));
    EXPECT_FALSE(fs::exists(s / "missing"));
    ExpectSourceUntouched();
}

TEST_F(CliSafety, RecoverWhatTheUserAskedForOrSaySoAndMakeNothing) {
    Outcome none = Kestrin("recover " + Quote(src) + " --quiet --to " + Quote(s / "none") + " --select '*.nothing'");
    EXPECT_EQ(none.exitCode, 5);
    EXPECT_FALSE(fs::exists(s / "none"));
    // Patterns ignore case, as the file systems they come from do.
    Outcome jpg = Kestrin("recover " + Quote(src) + " --quiet --to " + Quote(s / "pics") + " --select '*.JPG'");
    EXPECT_EQ(jpg.exitCode, 0) << jpg.err;
    EXPECT_TRUE(fs::exists(s / "pics/Photos/IMG_0001.jpg"));
    // A folder name ending in .zip makes the archive the docs promise.
    Outcome zip = Kestrin("recover " + Quote(src) + " --quiet --to " + Quote(s / "as.zip"));
    EXPECT_EQ(zip.exitCode, 0) << zip.err;
    EXPECT_TRUE(fs::is_regular_file(s / "as.zip"));
    EXPECT_EQ(FileText(s / "as.zip").substr(0, 2), "PK");
    // A disc image; then a medium that cannot be erased is refused with its reason when asked
    // to erase it, and not written another way.
    Outcome iso = Kestrin("recover " + Quote(src) + " --quiet --iso " + Quote(s / "all.iso"));
    EXPECT_EQ(iso.exitCode, 0) << iso.err;
    const std::string image = FileText(s / "all.iso");
    ASSERT_GT(image.size(), 32774u);
    EXPECT_EQ(image.substr(32769, 5), "CD001");
    Outcome erase = Kestrin("recover " + Quote(src) + " --quiet --burn stdio:/dev/fd/3 --erase 3<" + Quote(s / "all.iso"));
    EXPECT_EQ(erase.exitCode, 4) << erase.err;
    EXPECT_NE(erase.err.find("cannot be erased"), std::string::npos) << erase.err;
    EXPECT_TRUE(FileText(s / "all.iso") == image);
    ExpectSourceUntouched();
}

TEST_F(CliSafety, FailedWritesAreCountedRemovedAndGiveTheirOwnExitCode) {
    // Files may not grow past 2 KiB here: larger ones fail to write, as on a full disk.
    Outcome r = Kestrin("recover " + Quote(src) + " --quiet --to " + Quote(s / "limited"),
                        "trap '' XFSZ; ulimit -f 4; exec ");
    EXPECT_EQ(r.exitCode, 4) << r.out << r.err;
    EXPECT_NE(r.out.find("Could not be written"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("File too large"), std::string::npos) << r.out;
    // No partial file passes for a saved one: every file left is whole.
    for (auto& e : fs::recursive_directory_iterator(s.path / "limited"))
        if (e.is_regular_file()) {
            EXPECT_LT(e.file_size(), 4u * 512) << e.path();
        }
    EXPECT_NE(Utf16File(s / "limited/log.txt").find("could not be written"), std::string::npos);
}

TEST(CliHonesty, TruncatedImageIsReportedByRecoverCatAndImage) {
    std::string img = kestrin::test::UnpackImage("disk-mbr-small");
    ASSERT_FALSE(img.empty());
    ScratchDir s("cli-truncated");
    // Partition 2 (NTFS, sectors 86016-118783) loses its end: the image stops at sector 100000.
    std::string cut = s / "cut.img";
    {
        std::ifstream in(img, std::ios::binary);
        std::ofstream out(cut, std::ios::binary);
        std::string buf(100000u * 512, '\0');
        in.read(buf.data(), std::streamsize(buf.size()));
        out.write(buf.data(), std::streamsize(buf.size()));
    }
    Outcome rec = Kestrin("recover " + Quote(cut) + " --partition 2 --quiet --to " + Quote(s / "out"));
    EXPECT_EQ(rec.exitCode, 3) << rec.out << rec.err;
    EXPECT_NE(rec.out.find("Saved with unreadable parts"), std::string::npos) << rec.out;
    EXPECT_NE(Utf16File(s / "out/log.txt").find("Saved with unreadable parts"), std::string::npos);

    Outcome img2 = Kestrin("image " + Quote(cut) + " " + Quote(s / "p2.img") + " --partition 2 --quiet");
    EXPECT_EQ(img2.exitCode, 3) << img2.out << img2.err;
    EXPECT_EQ(fs::file_size(s / "p2.img"), 32768u * 512);
    EXPECT_NE(FileText(s / "p2.img.map").find("\n13984 18784\n"), std::string::npos) << FileText(s / "p2.img.map");

    // The same partition whole: everything saves, exit 0.
    Outcome whole = Kestrin("recover " + Quote(img) + " --partition 2 --quiet --to " + Quote(s / "whole"));
    EXPECT_EQ(whole.exitCode, 0) << whole.out;
    EXPECT_FALSE(fs::exists(s / "whole/log.txt"));
}

} // namespace
