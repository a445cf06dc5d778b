// Runs the kestrin program on committed images, as a user or a script would.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "TestImages.h"
#include "cli/CliRun.h"
#include "fs/CNode.h"
#include "output/SessionFile.h"
#include "storage/CPhysicalDisk.h"
#include "carve/SignatureFile.h"

namespace {

using kestrin::test::FileText;
using kestrin::test::Quote;
using Result = kestrin::test::CliResult;

Result Kestrin(const std::string& args) { return kestrin::test::RunKestrin(args); }

const nlohmann::json* Child(const nlohmann::json& n, const std::string& name) {
    if (!n.contains("children")) return nullptr;
    for (const auto& c : n["children"])
        if (c["name"] == name) return &c;
    return nullptr;
}

// The first raw character in `text` that a terminal would act on or that reorders what follows
// (controls other than the line feed, DEL, C1 controls, bidi characters, line separators);
// npos when there is none.
size_t FindRawControl(const std::string& text) {
    for (size_t i = 0; i < text.size(); ++i) {
        const auto b = [&](size_t k) { return i + k < text.size() ? uint8_t(text[i + k]) : 0; };
        if ((b(0) < 0x20 && b(0) != '\n') || b(0) == 0x7F) return i;
        if (b(0) == 0xC2 && b(1) >= 0x80 && b(1) <= 0x9F) return i;
        if (b(0) == 0xD8 && b(1) == 0x9C) return i;
        if (b(0) == 0xE2 && b(1) == 0x80 && (b(2) == 0x8E || b(2) == 0x8F || (b(2) >= 0xA8 && b(2) <= 0xAE))) return i;
        if (b(0) == 0xE2 && b(1) == 0x81 && b(2) >= 0xA6 && b(2) <= 0xA9) return i;
    }
    return std::string::npos;
}

} // namespace

TEST(CliEndToEnd, UsageErrorsAndUnreadableSources) {
    EXPECT_EQ(Kestrin("scan /nonexistent/image.img --quiet").exitCode, 1);
    std::string img = kestrin::test::UnpackImage("fat16-small");
    ASSERT_FALSE(img.empty());
    EXPECT_EQ(Kestrin("scan " + Quote(img) + " --mode everything --quiet").exitCode, 1);
    EXPECT_EQ(Kestrin("scan " + Quote(img) + " --partition 7 --quiet").exitCode, 1);
    EXPECT_EQ(Kestrin("scan " + Quote(img) + " --lang Klingon --quiet").exitCode, 1);
}

TEST(CliEndToEnd, FatVolumeScanJsonCatAndLs) {
    std::string img = kestrin::test::UnpackImage("fat16-small");
    ASSERT_FALSE(img.empty());
    Result r = Kestrin("scan " + Quote(img) + " --mode deleted-files --json - --quiet");
    ASSERT_EQ(r.exitCode, 0);
    auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["mode"], 1019);
    EXPECT_EQ(j["source"]["kind"], 4); // a volume image
    EXPECT_EQ(j["source"]["fsKind"], 1);
    EXPECT_EQ(j["source"]["sectorCount"], 32768);
    const auto* vol = Child(j["root"], ".");
    ASSERT_NE(vol, nullptr);
    const auto* photos = Child(*vol, "Photos");
    ASSERT_NE(photos, nullptr);
    const auto* jpg = Child(*photos, "IMG_0001.jpg");
    ASSERT_NE(jpg, nullptr);
    EXPECT_EQ((*jpg)["size"], 2757);
    bool deletedPng = false;
    for (const auto& c : (*photos)["children"])
        if (c["deleted"] == true && c["size"] == 3032) deletedPng = true;
    EXPECT_TRUE(deletedPng);
    // Deleted-only: no signature scan in this mode.
    EXPECT_EQ(Child(j["root"], "File Types"), nullptr);

    // cat gives the bytes where the file lies in the image.
    Result c = Kestrin("cat " + Quote(img) + " Documents/NOTES.TXT --quiet");
    ASSERT_EQ(c.exitCode, 0);
    EXPECT_EQ(c.out, FileText(img).substr(86016, 1200));
    EXPECT_EQ(Kestrin("cat " + Quote(img) + " Documents/NOPE.TXT --quiet").exitCode, 1);

    Result ls = Kestrin("ls " + Quote(img) + " --deleted --quiet");
    ASSERT_EQ(ls.exitCode, 0);
    EXPECT_EQ(ls.out.rfind("Root\n", 0), 0u);
    EXPECT_NE(ls.out.find("  Photos/"), std::string::npos);
    EXPECT_EQ(ls.out.find("IMG_0001.jpg"), std::string::npos);
    EXPECT_EQ(ls.out.find("Documents/"), std::string::npos);

    // The photo modes keep pictures, video and music only.
    Result p = Kestrin("scan " + Quote(img) + " --mode deleted-photos --json - --quiet");
    ASSERT_EQ(p.exitCode, 0);
    auto pj = nlohmann::json::parse(p.out);
    std::string names;
    std::function<void(const nlohmann::json&)> walk = [&](const nlohmann::json& n) {
        if (n["folder"] == false) names += n["name"].get<std::string>() + ";";
        if (n.contains("children"))
            for (const auto& k : n["children"]) walk(k);
    };
    walk(pj["root"]);
    EXPECT_NE(names.find("IMG_0001.jpg;"), std::string::npos);
    EXPECT_EQ(names.find(".pdf;"), std::string::npos);
    EXPECT_EQ(names.find(".TXT;"), std::string::npos);
}

TEST(CliEndToEnd, DiskImageNeedsAPartitionOrRunsThemAll) {
    std::string img = kestrin::test::UnpackImage("disk-mbr-small");
    ASSERT_FALSE(img.empty());
    Result r = Kestrin("scan " + Quote(img) + " --mode deleted-files --quiet");
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("--partition"), std::string::npos);
    EXPECT_NE(r.err.find("FAT32"), std::string::npos);

    Result all = Kestrin("scan " + Quote(img) + " --mode deleted-files --partition all --json - --quiet");
    ASSERT_EQ(all.exitCode, 0);
    auto j = nlohmann::json::parse(all.out);
    ASSERT_TRUE(j.contains("volumes"));
    ASSERT_GE(j["volumes"].size(), 2u);
    int last = 0;
    for (const auto& v : j["volumes"]) {
        EXPECT_GT(v["partition"].get<int>(), last);
        last = v["partition"];
        EXPECT_EQ(v["source"]["kind"], 5); // a partition inside an image
        EXPECT_GT(v["source"]["firstSector"].get<uint64_t>(), 0u);
        EXPECT_NE(Child(v["root"], "."), nullptr);
    }
}

// Other systems' partitions are listed as unknown with their table type, and can be scanned for
// lost files like any range of the disk.
TEST(CliEndToEnd, OtherSystemsPartitionsAreListedAndScannable) {
    std::string img = kestrin::test::UnpackImage("disk-gpt-other");
    ASSERT_FALSE(img.empty());
    Result list = Kestrin("partitions " + Quote(img) + " --json");
    ASSERT_EQ(list.exitCode, 0);
    auto j = nlohmann::json::parse(list.out);
    ASSERT_EQ(j["partitions"].size(), 7u);
    EXPECT_EQ(j["partitions"][0]["fsName"], "FAT16");
    EXPECT_EQ(j["partitions"][1]["fsName"], "unknown");
    EXPECT_EQ(j["partitions"][1]["tableType"], "linux");
    EXPECT_EQ(j["partitions"][6]["tableType"], "apple-apfs");
    Result text = Kestrin("partitions " + Quote(img));
    EXPECT_NE(text.out.find("unknown         1           512                0  swap"), std::string::npos) << text.out;

    Result scan = Kestrin("scan " + Quote(img) + " --partition 2 --mode lost-files --json - --quiet");
    ASSERT_EQ(scan.exitCode, 0);
    auto s = nlohmann::json::parse(scan.out);
    EXPECT_EQ(s["source"]["firstSector"], 18432);
    EXPECT_EQ(s["source"]["sectorCount"], 4096);
}

TEST(CliEndToEnd, SessionStandsInForTheScan) {
    std::string img = kestrin::test::UnpackImage("fat32-features");
    ASSERT_FALSE(img.empty());
    std::string session = ::testing::TempDir() + "/kestrin-cli-session.tks4";
    std::remove(session.c_str());
    Result scanned = Kestrin("scan '" + img + "' --quiet --json - --session '" + session + "'");
    ASSERT_EQ(scanned.exitCode, 0);
    Result listed = Kestrin("ls '" + session + "' --json -");
    ASSERT_EQ(listed.exitCode, 0);
    auto a = nlohmann::json::parse(scanned.out), b = nlohmann::json::parse(listed.out);
    // The tree read back equals the scanned one, node for node.
    EXPECT_EQ(a["root"], b["root"]);
    EXPECT_EQ(b["mode"], 1019);
    // A session holds one volume: --partition all cannot be written into one.
    std::string disk = kestrin::test::UnpackImage("disk-mbr");
    ASSERT_FALSE(disk.empty());
    EXPECT_EQ(Kestrin("scan '" + disk + "' --partition all --quiet --session '" + session + "x'").exitCode, 1);
    std::remove(session.c_str());
}

// A dynamic disk: both volumes are listed with their names, and the FAT32 volume spanned over two
// ranges that are apart is chosen by its number and saved byte-exact (its later files lie in the
// second range, so a read of one range would give wrong bytes).
TEST(CliEndToEnd, DynamicDiskVolumesListAndRecover) {
    std::string img = kestrin::test::UnpackImage("ldm-dynamic");
    ASSERT_FALSE(img.empty());
    Result p = Kestrin("partitions " + Quote(img) + " --json");
    ASSERT_EQ(p.exitCode, 0);
    auto j = nlohmann::json::parse(p.out);
    EXPECT_EQ(j["layout"], "ldm");
    ASSERT_EQ(j["partitions"].size(), 2u);
    EXPECT_EQ(j["partitions"][0]["dynamicVolume"], "Simple");
    EXPECT_EQ(j["partitions"][0]["fsName"], "NTFS");
    const auto& span = j["partitions"][1];
    EXPECT_EQ(span["dynamicVolume"], "Spanned");
    EXPECT_EQ(span["startSector"], 40960);
    EXPECT_EQ(span["length"], 81920);
    EXPECT_EQ(span["fsName"], "FAT32");
    EXPECT_EQ(span["flag"], 2);

    Result s = Kestrin("scan " + Quote(img) + " --partition 2 --json - --quiet");
    ASSERT_EQ(s.exitCode, 0);
    auto sj = nlohmann::json::parse(s.out);
    EXPECT_EQ(sj["source"]["kind"], 4); // read as a volume of its own, from its sector 0
    EXPECT_EQ(sj["source"]["sectorCount"], 81920);
    const auto* vol = Child(sj["root"], ".");
    ASSERT_NE(vol, nullptr);
    ASSERT_NE(Child(*vol, "FILE23.BIN"), nullptr);
    EXPECT_EQ((*Child(*vol, "FILE23.BIN"))["size"], 1 << 20);

    std::string out = ::testing::TempDir() + "kestrin-e2e-ldm";
    std::filesystem::remove_all(out);
    ASSERT_EQ(Kestrin("recover " + Quote(img) + " --partition 2 --to " + Quote(out) + " --quiet").exitCode, 0);
    for (int i = 0; i < 24; ++i) {
        char name[16];
        std::snprintf(name, sizeof name, "FILE%02d.BIN", i);
        std::string got = FileText(out + "/" + name);
        ASSERT_EQ(got.size(), 1u << 20) << name;
        std::string want(1u << 20, '\0');
        for (size_t k = 0; k < want.size(); ++k) want[k] = char((i * 37 + (k % 256) * 13) & 0xFF);
        EXPECT_TRUE(got == want) << name;
    }
    std::filesystem::remove_all(out);
}

// `kestrin signatures` on a copy of the built slt.dat: junk fields are refused naming the option,
// unknown and shipped rows say why, a damaged file is not rewritten, and every refusal leaves
// the file byte for byte as it was.
TEST(CliEndToEnd, SignaturesRefuseJunkAndKeepTheFile) {
    namespace fs = std::filesystem;
    std::string dir = testing::TempDir() + "kestrin-sig-XXXXXX";
    ASSERT_TRUE(::mkdtemp(dir.data()));
    const std::string slt = dir + "/slt.dat";
    fs::copy_file(std::string(KESTRIN_BINARY_DIR) + "/slt.dat", slt);
    const std::string shipped = FileText(slt);
    const size_t rows = kestrin::LoadSignatureFile(dir).records.size();
    ASSERT_GT(rows, 10u);
    auto sig = [&](const std::string& args) { return Kestrin("signatures --folder " + Quote(dir) + " " + args); };

    struct Refusal {
        std::string args;
        std::string message; // what stderr must hold
    };
    const std::string range = " (rows 1-" + std::to_string(rows) + ")";
    const std::string ok = " --ext usr --description Mine";
    const Refusal refusals[] = {
        {"add --header ZZ --offset 0 --size 1" + ok, "kestrin: --header: "},
        {"add --header FFD --offset 0 --size 1" + ok, "kestrin: --header: "},
        {"add --header '' --offset 0 --size 1" + ok, "kestrin: --header: "},
        {"add --header FFD8 --offset -1 --size 1" + ok, "kestrin: --offset: "},
        {"add --header FFD8 --offset 511 --size 1" + ok, "kestrin: --offset: "},
        {"add --header FFD8 --offset 4x --size 1" + ok, "kestrin: --offset: "},
        {"add --header FFD8 --offset 0 --size 0" + ok, "kestrin: --size: "},
        {"add --header FFD8 --offset 0 --size 4097 --unit mb" + ok, "kestrin: --size: "},
        {"add --header FFD8 --offset 0 --size 1 --ext . --description Mine", "kestrin: --ext: "},
        {"edit 99999 --description x", "kestrin: there is no signature row 99999" + range},
        {"edit abc --description x", "kestrin: there is no signature row abc" + range},
        {"delete 0", "kestrin: there is no signature row 0" + range},
        {"edit 1 --description x", "kestrin: row 1 is a shipped type; only user-defined rows can be edited"},
        {"delete 1", "kestrin: row 1 is a shipped type; only user-defined rows can be deleted"},
    };
    for (const Refusal& r : refusals) {
        Result run = sig(r.args);
        EXPECT_EQ(run.exitCode, 1) << r.args;
        EXPECT_NE(run.err.find(r.message), std::string::npos) << r.args << "\n" << run.err;
        EXPECT_TRUE(FileText(slt) == shipped) << r.args;
    }

    // A good row goes in; junk in an edit of it is refused the same way; deleting it gives the
    // shipped file back exactly.
    ASSERT_EQ(sig("add --header ffd8 --offset 510 --size 4 --unit mb" + ok).exitCode, 0);
    const std::string withUser = FileText(slt);
    auto loaded = kestrin::LoadSignatureFile(dir).records;
    ASSERT_EQ(loaded.size(), rows + 1);
    EXPECT_EQ(loaded.back().fixedSize, 4u << 20);
    EXPECT_EQ(loaded.back().headerOffset, 510u);
    const std::string user = std::to_string(rows + 1);
    Result junk = sig("edit " + user + " --offset -1");
    EXPECT_EQ(junk.exitCode, 1);
    EXPECT_NE(junk.err.find("kestrin: --offset: "), std::string::npos);
    EXPECT_TRUE(FileText(slt) == withUser);
    ASSERT_EQ(sig("delete " + user).exitCode, 0);
    EXPECT_TRUE(FileText(slt) == shipped);

    // A file that ends early is not rewritten from the part that could be read.
    std::string cut = shipped.substr(0, shipped.size() / 2);
    std::ofstream(slt, std::ios::binary | std::ios::trunc) << cut;
    EXPECT_EQ(sig("add --header FFD8 --offset 0 --size 1" + ok).exitCode, 1);
    EXPECT_TRUE(FileText(slt) == cut);
    fs::remove_all(dir);
}

// Names that hold escape sequences, controls, bidi overrides, a line separator and an unpaired
// surrogate: `ls` shows each escaped on a line of its own, the JSON carries them exactly.
TEST(CliEndToEnd, HostileNamesAreEscapedOnTheTerminalAndExactInJson) {
    std::string img = kestrin::test::UnpackImage("fat16-hostile-names");
    ASSERT_FALSE(img.empty());
    struct Name {
        const char* listed; // as `ls` prints it, after the indentation
        const char* json;   // as the JSON gives it back
    };
    const Name names[] = {
        {"\\x1b]0;pwned\\x07dir/", "\x1b]0;pwned\x07" "dir"},
        {"  tab\\x09here.txt  ", "\x1b]0;pwned\x07" "dir/tab\there.txt"},
        {"\\x1b[31mred.txt  ", "\x1b[31mred.txt"},
        {"a\\x0ab.txt  ", "a\nb.txt"},
        {"cr\\x0dover.txt  ", "cr\rover.txt"},
        {"bell\\x07.txt  ", "bell\x07.txt"},
        {"del\\x7f.txt  ", "del\x7f.txt"},
        {"c1\\u009b2J.txt  ", "c1\xC2\x9B" "2J.txt"},
        {"photo\\u202egpj.exe  ", "photo\xE2\x80\xAEgpj.exe"},
        {"iso\\u2066late.txt  ", "iso\xE2\x81\xA6late.txt"},
        {"line\\u2028sep.txt  ", "line\xE2\x80\xA8sep.txt"},
        {"lone\\ud800.txt  ", "lone\xEF\xBF\xBD.txt"}, // JSON text cannot hold the unpaired unit
        {"back\\slash.txt  ", "back\\slash.txt"},
        {"caf\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC.txt  ", "caf\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC.txt"},
        {"plain name.txt  ", "plain name.txt"},
    };

    Result ls = Kestrin("ls " + Quote(img) + " --quiet");
    ASSERT_EQ(ls.exitCode, 0);
    EXPECT_EQ(FindRawControl(ls.out), std::string::npos) << ls.out;
    for (const auto& n : names) EXPECT_NE(ls.out.find(std::string("\n    ") + n.listed), std::string::npos) << n.listed;
    // No name breaks a line: every line but the first is an indented entry.
    for (size_t at = ls.out.find('\n'); at + 1 < ls.out.size(); at = ls.out.find('\n', at + 1))
        EXPECT_EQ(ls.out.compare(at + 1, 2, "  "), 0) << ls.out.substr(at + 1, 40);

    Result js = Kestrin("scan " + Quote(img) + " --json - --quiet");
    ASSERT_EQ(js.exitCode, 0);
    EXPECT_EQ(FindRawControl(js.out), std::string::npos);
    auto j = nlohmann::json::parse(js.out);
    const auto* vol = Child(j["root"], ".");
    ASSERT_NE(vol, nullptr);
    for (const auto& n : names) {
        std::string path = n.json;
        const nlohmann::json* at = vol;
        for (size_t from = 0, slash; at; from = slash + 1) {
            slash = path.find('/', from);
            at = Child(*at, path.substr(from, slash == std::string::npos ? slash : slash - from));
            if (slash == std::string::npos) break;
        }
        EXPECT_NE(at, nullptr) << n.listed;
    }
}

// A session whose tree is a chain 100,000 folders deep lists in linear size: the indentation
// stops growing and a depth marker takes over.
TEST(CliEndToEnd, DeepSessionTreeListsInLinearSize) {
    std::string img = kestrin::test::UnpackImage("fat16-small");
    ASSERT_FALSE(img.empty());
    kestrin::CPhysicalDisk media;
    ASSERT_TRUE(media.AttachImageFile(img));
    std::unique_ptr<kestrin::CNode> top(new kestrin::CNode);
    kestrin::CNode* at = top.get();
    constexpr size_t kDepth = 100000;
    for (size_t i = 0; i < kDepth; ++i) {
        auto* n = new kestrin::CNode;
        n->name = std::u16string(1, u'd');
        n->nameLength = 1;
        n->flags = 3;
        at->AppendChild(n);
        at = n;
    }
    std::string session = ::testing::TempDir() + "kestrin-e2e-deep.tks4";
    std::remove(session.c_str());
    kestrin::SessionView view;
    view.mode = kestrin::RecoveryMode::DeletedFiles;
    view.media = &media;
    view.top = top.get();
    struct Quiet final : kestrin::IUserMessages {
        void Show(const kestrin::UserMessage&) override {}
    } quiet;
    ASSERT_EQ(kestrin::WriteSession(session, view, quiet), 1);

    // Read with a cap: listing with growing indentation would be some 10 GB, so stop well before.
    constexpr size_t kCap = 100u << 20;
    const std::string out = kestrin::test::RunKestrin("ls " + Quote(session), "", kCap).out;
    std::remove(session.c_str());
    ASSERT_LT(out.size(), kCap);
    EXPECT_EQ(size_t(std::count(out.begin(), out.end(), '\n')), kDepth + 1);
    EXPECT_NE(out.find("\n" + std::string(2 * 64, ' ') + "d/\n" + std::string(2 * 64, ' ') + "[depth 65] d/\n"),
              std::string::npos);
    EXPECT_NE(out.find("[depth 100000] d/\n"), std::string::npos);
}

// Volumes whose deleted files were left alone, partly and wholly overwritten by files written
// later with the file systems' own tools; the manifests hold what The Sleuth Kit's allocation
// status of the files' old clusters says.
TEST(CliEndToEnd, DeletedFilesCarryTheirConditionInJsonAndSessions) {
    for (const char* fs : {"fat16", "ntfs", "exfat"}) {
        SCOPED_TRACE(fs);
        const std::string name = std::string("condition-") + fs;
        const std::string img = kestrin::test::UnpackImage(name);
        ASSERT_FALSE(img.empty());
        const auto manifest = nlohmann::json::parse(FileText(std::string(KESTRIN_SOURCE_DIR) + "/tests/images/" + name + ".json"));
        const std::string session = std::string(KESTRIN_BINARY_DIR) + "/" + name + "-" + std::to_string(::getpid()) + ".tks4";
        Result scanned = Kestrin("scan " + Quote(img) + " --mode deleted-files --json - --session " + Quote(session) + " --quiet");
        ASSERT_EQ(scanned.exitCode, 0);
        Result listed = Kestrin("scan " + Quote(session) + " --json - --quiet");
        std::remove(session.c_str());
        ASSERT_EQ(listed.exitCode, 0);
        for (const Result* r : {&scanned, &listed}) {
            auto j = nlohmann::json::parse(r->out);
            const auto* vol = Child(j["root"], ".");
            ASSERT_NE(vol, nullptr);
            const auto* old = Child(*vol, "old");
            ASSERT_NE(old, nullptr);
            // Deleted files are told apart by their sizes (FAT names lose their first letter).
            for (const auto& want : manifest["deleted"]) {
                SCOPED_TRACE(want["path"].get<std::string>());
                const nlohmann::json* got = nullptr;
                for (const auto& c : (*old)["children"])
                    if (c["deleted"] == true && c["size"] == want["size"]) got = &c;
                ASSERT_NE(got, nullptr);
                EXPECT_EQ((*got)["condition"], want["condition"]);
                EXPECT_EQ((*got)["overwrittenBytes"], want["overwrittenBytes"]);
            }
            // Every deleted file has a condition, no live file or folder has one.
            std::function<void(const nlohmann::json&)> walk = [&](const nlohmann::json& n) {
                const bool deletedFile = n["deleted"] == true && n["folder"] == false;
                EXPECT_EQ(n.contains("condition"), deletedFile) << n["name"];
                if (n.contains("children"))
                    for (const auto& c : n["children"]) walk(c);
            };
            walk(j["root"]);
        }
    }
}
