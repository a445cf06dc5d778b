// Output safety and honest results, end to end through the program: no output option can
// replace the source or an existing file without consent, bad options stop before any work, and
// every unreadable or unwritable byte shows in the exit code, the summary and the log.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "TestImages.h"

namespace {

namespace fs = std::filesystem;

struct Outcome {
    int exitCode = -1;
    std::string out, err;
};

// Runs `prefix kestrin args` through the shell (so tests can add redirections and limits).
Outcome Kestrin(const std::string& args, const std::string& shellPrefix = "") {
    static int counter = 0;
    std::string errFile = fs::path(KESTRIN_BINARY_DIR) / ("safety-err-" + std::to_string(::getpid()) + "-" +
                                                          std::to_string(++counter));
    std::string cmd = shellPrefix + "'" + std::string(KESTRIN_BINARY_DIR) + "/bin/kestrin' " + args +
                      " </dev/null 2>'" + errFile + "'";
    Outcome r;
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return r;
    char buf[65536];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
    int st = pclose(p);
    r.exitCode = WIFEXITED(st) ? WEXITSTATUS(st) : 128;
    std::ifstream e(errFile);
    r.err.assign(std::istreambuf_iterator<char>(e), {});
    fs::remove(errFile);
    return r;
}

std::string Q(const std::string& s) { return "'" + s + "'"; }

std::string Bytes(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

std::string Utf16File(const std::string& path) {
    std::string b = Bytes(path), out;
    for (size_t i = 0; i + 1 < b.size(); i += 2) out += b[i + 1] ? '?' : b[i];
    return out;
}

struct Scratch {
    fs::path dir;
    explicit Scratch(const std::string& name) {
        dir = fs::path(KESTRIN_BINARY_DIR) / "test-output" / (name + "-" + std::to_string(::getpid()));
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    ~Scratch() { fs::remove_all(dir); }
    std::string operator/(const std::string& rel) const { return (dir / rel).string(); }
};

class CliSafety : public ::testing::Test {
protected:
    Scratch s{"cli-safety"};
    std::string src;
    std::string original;
    void SetUp() override {
        std::string img = kestrin::test::UnpackImage("fat16-small");
        ASSERT_FALSE(img.empty());
        // A private copy named like an archive, so that --zip can name it too.
        src = s / "source.zip";
        fs::copy_file(img, src);
        original = Bytes(src);
    }
    void ExpectSourceUntouched() { EXPECT_TRUE(Bytes(src) == original) << "the source changed"; }
};

TEST_F(CliSafety, NoOutputOptionReachesTheSourceUnderAnyName) {
    fs::create_symlink(src, s / "link.zip");
    fs::create_hard_link(src, s / "hard.zip");
    const std::string names[] = {src, s / "link.zip", s / "hard.zip", "/proc/self/fd/3"};
    for (const std::string& name : names) {
        const std::string redirect = " 3<" + Q(src);
        const std::string cmds[] = {
            "scan " + Q(src) + " --quiet --json " + Q(name),
            "scan " + Q(src) + " --quiet --session " + Q(name) + " --overwrite",
            "ls " + Q(src) + " --quiet --json " + Q(name) + " --overwrite",
            "recover " + Q(src) + " --quiet --zip " + Q(name) + " --overwrite",
            "recover " + Q(src) + " --quiet --to " + Q(name),
            "image " + Q(src) + " " + Q(name) + " --quiet --overwrite",
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
    for (auto& e : fs::directory_iterator(s.dir)) entries += (void(e), 1);
    EXPECT_EQ(entries, 3u);
}

TEST_F(CliSafety, ExistingFilesAreKeptWithoutOverwriteAndReplacedWithIt) {
    const std::string outs[] = {s / "out.json", s / "out.tks4", s / "out.zip", s / "out.img"};
    for (auto& o : outs) std::ofstream(o) << "mine";
    const std::string cmds[] = {
        "scan " + Q(src) + " --quiet --json " + Q(outs[0]),
        "scan " + Q(src) + " --quiet --session " + Q(outs[1]),
        "recover " + Q(src) + " --quiet --zip " + Q(outs[2]),
        "image " + Q(src) + " " + Q(outs[3]) + " --quiet",
    };
    for (auto& c : cmds) {
        Outcome r = Kestrin(c);
        EXPECT_EQ(r.exitCode, 1) << c << "\n" << r.err;
        EXPECT_NE(r.err.find("--overwrite"), std::string::npos) << r.err;
    }
    for (auto& o : outs) EXPECT_EQ(Bytes(o), "mine") << o;
    for (auto& c : cmds) EXPECT_EQ(Kestrin(c + " --overwrite").exitCode, 0) << c;
    for (auto& o : outs) EXPECT_NE(Bytes(o), "mine") << o;
    EXPECT_EQ(Bytes(outs[3]), original);
    // No temporary is left beside any of them.
    for (auto& e : fs::directory_iterator(s.dir))
        EXPECT_EQ(e.path().filename().string().find(".part"), std::string::npos) << e.path();
    ExpectSourceUntouched();
}

TEST_F(CliSafety, BadOptionsStopBeforeAnyWork) {
    struct Case {
        std::string args, says;
    } cases[] = {
        {"frobnicate " + Q(src), "unknown command \"frobnicate\""},
        {"scan " + Q(src) + " --json --quiet", "looks like an option"},
        {"scan " + Q(src) + " --partition abc", "not a partition number"},
        {"scan " + Q(src) + " --sector-size 4000", "not a sector size"},
        {"partitions " + Q(src) + " --sector-size 256", "not a sector size"},
        {"image " + Q(src) + " " + Q(s / "x.img") + " --sector-size x", "not a sector size"},
        {"scan " + Q(src) + " --partition all --session " + Q(s / "x.tks4"), "one volume"},
        {"recover " + Q(src) + " --partition all --zip " + Q(s / "x.zip"), "one volume"},
        {"scan " + Q(src) + " --json " + Q(s / "missing/x.json"), "does not exist"},
        {"scan " + Q(src) + " --session " + Q(s / "missing/x.tks4"), "does not exist"},
        {"recover " + Q(src) + " --zip " + Q(s / "missing/x.zip"), "does not exist"},
        {"recover " + Q(s / "no-such.img") + " --to " + Q(s / "made"), "No such file or directory"},
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
    Outcome none = Kestrin("recover " + Q(src) + " --quiet --to " + Q(s / "none") + " --select '*.nothing'");
    EXPECT_EQ(none.exitCode, 5);
    EXPECT_FALSE(fs::exists(s / "none"));
    // Patterns ignore case, as the file systems they come from do.
    Outcome jpg = Kestrin("recover " + Q(src) + " --quiet --to " + Q(s / "pics") + " --select '*.JPG'");
    EXPECT_EQ(jpg.exitCode, 0) << jpg.err;
    EXPECT_TRUE(fs::exists(s / "pics/Photos/IMG_0001.jpg"));
    // A folder name ending in .zip makes the archive the docs promise.
    Outcome zip = Kestrin("recover " + Q(src) + " --quiet --to " + Q(s / "as.zip"));
    EXPECT_EQ(zip.exitCode, 0) << zip.err;
    EXPECT_TRUE(fs::is_regular_file(s / "as.zip"));
    EXPECT_EQ(Bytes(s / "as.zip").substr(0, 2), "PK");
    ExpectSourceUntouched();
}

TEST_F(CliSafety, FailedWritesAreCountedRemovedAndGiveTheirOwnExitCode) {
    // Files may not grow past 2 KiB here: larger ones fail to write, as on a full disk.
    Outcome r = Kestrin("recover " + Q(src) + " --quiet --to " + Q(s / "limited"),
                    "trap '' XFSZ; ulimit -f 4; exec ");
    EXPECT_EQ(r.exitCode, 4) << r.out << r.err;
    EXPECT_NE(r.out.find("Could not be written"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("File too large"), std::string::npos) << r.out;
    // No partial file passes for a saved one: every file left is whole.
    for (auto& e : fs::recursive_directory_iterator(s.dir / "limited"))
        if (e.is_regular_file()) {
            EXPECT_LT(e.file_size(), 4u * 512) << e.path();
        }
    EXPECT_NE(Utf16File(s / "limited/log.txt").find("could not be written"), std::string::npos);
}

TEST(CliHonesty, TruncatedImageIsReportedByRecoverCatAndImage) {
    std::string img = kestrin::test::UnpackImage("disk-mbr-small");
    ASSERT_FALSE(img.empty());
    Scratch s("cli-truncated");
    // Partition 2 (NTFS, sectors 86016-118783) loses its end: the image stops at sector 100000.
    std::string cut = s / "cut.img";
    {
        std::ifstream in(img, std::ios::binary);
        std::ofstream out(cut, std::ios::binary);
        std::string buf(100000u * 512, '\0');
        in.read(buf.data(), std::streamsize(buf.size()));
        out.write(buf.data(), std::streamsize(buf.size()));
    }
    Outcome rec = Kestrin("recover " + Q(cut) + " --partition 2 --quiet --to " + Q(s / "out"));
    EXPECT_EQ(rec.exitCode, 3) << rec.out << rec.err;
    EXPECT_NE(rec.out.find("Saved with unreadable parts"), std::string::npos) << rec.out;
    EXPECT_NE(Utf16File(s / "out/log.txt").find("Saved with unreadable parts"), std::string::npos);

    Outcome img2 = Kestrin("image " + Q(cut) + " " + Q(s / "p2.img") + " --partition 2 --quiet");
    EXPECT_EQ(img2.exitCode, 3) << img2.out << img2.err;
    EXPECT_EQ(fs::file_size(s / "p2.img"), 32768u * 512);
    EXPECT_NE(Bytes(s / "p2.img.map").find("\n13984 18784\n"), std::string::npos) << Bytes(s / "p2.img.map");

    // The same partition whole: everything saves, exit 0.
    Outcome whole = Kestrin("recover " + Q(img) + " --partition 2 --quiet --to " + Q(s / "whole"));
    EXPECT_EQ(whole.exitCode, 0) << whole.out;
    EXPECT_FALSE(fs::exists(s / "whole/log.txt"));
}

} // namespace
