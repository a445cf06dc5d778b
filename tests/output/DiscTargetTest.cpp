// Saving to a disc without a recorder: the recorder library's "stdio:" pseudo-drive writes the
// same track into a file, and xorriso reads it back.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

#include "OutputTestUtil.h"
#include "TestImages.h"
#include "fs/VolumeTree.h"
#include "output/DiscTarget.h"
#include "scan/CScanDriver.h"
#include "session/EngineTable.h"
#include "session/Source.h"
#include "storage/ByteSource.h"
#include "util/Text.h"

namespace kestrin {
namespace {

namespace fs = std::filesystem;
using test::CapturedMessages;
using test::ScratchDir;
using test::TestContext;

bool HaveXorriso() { return std::system("command -v xorriso >/dev/null 2>&1") == 0; }

std::string Quoted(const std::string& s) { return "'" + s + "'"; }

// Every file below `dir` by its path below it, with its bytes.
std::map<std::string, std::vector<uint8_t>> FilesBelow(const fs::path& dir) {
    std::map<std::string, std::vector<uint8_t>> out;
    for (auto& e : fs::recursive_directory_iterator(dir))
        if (e.is_regular_file()) out[fs::relative(e.path(), dir).string()] = test::ReadAll(e.path().string());
    return out;
}

std::map<std::string, std::vector<uint8_t>> ExtractIso(const std::string& iso, const fs::path& into) {
    std::string cmd = "xorriso -osirrox on -indev " + Quoted(iso) + " -extract / " + Quoted(into.string()) + " >/dev/null 2>&1";
    EXPECT_EQ(std::system(cmd.c_str()), 0) << cmd;
    return FilesBelow(into);
}

// The names the Joliet tree holds, as a reader without Rock Ridge sees them.
std::string JolietListing(const std::string& iso) {
    std::string out = iso + ".joliet";
    std::string cmd = "xorriso -read_fs norock -indev " + Quoted(iso) + " -find / -type f 2>/dev/null > " + Quoted(out);
    EXPECT_EQ(std::system(cmd.c_str()), 0);
    auto bytes = test::ReadAll(out);
    return {bytes.begin(), bytes.end()};
}

// Content as a carved item has it, handed over in small pieces with a pause after each when
// `slow` is set (a write long enough to be cancelled in the middle).
std::atomic<bool> g_slow{false};
ContentResult RangeContent(CPhysicalDisk& media, const CNode& node, const ContentSink& sink) {
    ContentResult r;
    const uint64_t at = node.location * media.GetSectorSize();
    if (at + node.size > media.ByteSize()) return r;
    std::vector<uint8_t> buf(16384);
    for (uint64_t done = 0; done < node.size;) {
        size_t n = size_t(std::min<uint64_t>(buf.size(), node.size - done));
        if (media.Handle()->ReadAt(buf.data(), n, at + done) != (long long)n || !sink(buf.data(), n)) return r;
        done += n;
        if (g_slow) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    r.written = node.size;
    r.ok = true;
    return r;
}

struct SyntheticVolume {
    CPhysicalDisk media;
    std::unique_ptr<CNode> top{MakeTopNode()};
    CNode* vol = nullptr;
    std::vector<uint8_t> bytes;
    explicit SyntheticVolume(size_t size) : bytes(size) {
        for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = uint8_t(i * 13 + (i >> 11));
        media.Attach(std::make_unique<MemorySource>(bytes));
        media.SetSectorSize(512);
        media.SetSectorCount(size / 512);
        vol = new CNode;
        vol->name = u".";
        vol->flags = 3;
        top->AppendChild(vol);
    }
    CNode* File(std::u16string name, uint64_t sector, uint64_t size) {
        auto* n = new CNode;
        n->name = std::move(name);
        n->nameLength = uint8_t(std::min<size_t>(n->name.size(), 255));
        n->flags = 1;
        n->checked = 1;
        n->location = sector;
        n->size = size;
        vol->AppendChild(n);
        return n;
    }
    std::vector<uint8_t> Bytes(const CNode* n) const {
        auto from = bytes.begin() + long(n->location * 512);
        return {from, from + long(n->size)};
    }
};

SaveRequest Request(CapturedMessages& msgs) {
    SaveRequest r;
    r.messages = &msgs;
    r.content = &RangeContent;
    return r;
}

bool Shown(const CapturedMessages& msgs, const std::string& id, std::string* text = nullptr) {
    for (const auto& m : msgs.shown)
        if (m.id == id) {
            if (text) {
                text->clear();
                for (const auto& t : m.text) *text += t.id.empty() ? t.fallback + t.arg : t.fallback;
            }
            return true;
        }
    return false;
}

TEST(DiscTarget, FixtureOnAPseudoDriveAndInAnIsoFileMatchesTheFolderSave) {
    if (!HaveXorriso()) GTEST_SKIP() << "xorriso is needed to read the image back";
    std::string img = test::UnpackImage("fat32-features");
    ASSERT_FALSE(img.empty());
    OpenedSource src;
    std::string error;
    ASSERT_TRUE(OpenSource(img, src, error)) << error;
    QuietScanEvents events;
    CScanDriver driver(*src.media, MakeEngines(), events);
    ASSERT_TRUE(driver.StartForSource(RecoveryMode::DeletedFiles));
    driver.Wait();
    std::unique_ptr<CNode> tree = driver.ReleaseTree();
    ASSERT_TRUE(tree);
    uint64_t ticked = 0;
    ForEachNode(tree.get(), [&](CNode* n) { ticked += (n->checked = !n->IsFolder()); });
    ASSERT_GT(ticked, 3u);

    ScratchDir dir("disc-fixture");
    TestContext tc;
    tc.ctx.top = tree.get();
    CapturedMessages msgs;
    SaveRequest folderReq;
    folderReq.destination = dir / "folder";
    fs::create_directories(folderReq.destination);
    SaveResult folder = SaveMarked(*src.media, tc.ctx, folderReq);
    ASSERT_GT(folder.files, 3u);
    auto expected = FilesBelow(folderReq.destination);

    SaveRequest base;
    base.messages = &msgs;
    std::vector<DiscVolume> volumes{{src.media.get(), tree.get(), ""}};
    for (bool pseudoDrive : {false, true}) {
        SCOPED_TRACE(pseudoDrive ? "pseudo-drive" : "iso file");
        std::string iso = dir / (pseudoDrive ? "drive.iso" : "file.iso");
        DiscRequest disc;
        if (pseudoDrive)
            disc.recorder = "stdio:" + iso;
        else
            disc.isoPath = iso;
        SaveResult r = SaveToDisc(volumes, tc.ctx, base, disc);
        EXPECT_FALSE(r.archiveFailed) << r.writeErrorText;
        EXPECT_FALSE(r.cancelled);
        EXPECT_EQ(r.files, folder.files);
        EXPECT_EQ(r.folders, folder.folders);
        EXPECT_EQ(r.incomplete, folder.incomplete);
        EXPECT_EQ(r.bytes, folder.bytes);
        auto got = ExtractIso(iso, dir / (pseudoDrive ? "from-drive" : "from-file"));
        EXPECT_EQ(got.size(), expected.size());
        for (const auto& [path, bytes] : expected) {
            auto it = got.find(path);
            ASSERT_NE(it, got.end()) << path;
            EXPECT_TRUE(it->second == bytes) << path;
        }
    }
    EXPECT_TRUE(msgs.shown.empty());
}

TEST(DiscTarget, LongNamesAreCutForJolietKeepingTheExtensionAndCollisionsGetAStableSuffix) {
    const std::u16string stem(70, u'n');
    EXPECT_EQ(DiscName(u"short.txt", false), u"short.txt");
    std::u16string cut = DiscName(stem + u"1.jpeg", false);
    EXPECT_EQ(cut.size(), kJolietNameUnits);
    EXPECT_EQ(cut.substr(cut.size() - 5), u".jpeg");
    std::u16string a = DiscName(stem + u"1.jpeg", true), b = DiscName(stem + u"2.jpeg", true);
    EXPECT_EQ(a.size(), kJolietNameUnits);
    EXPECT_NE(a, b);
    EXPECT_EQ(a, DiscName(stem + u"1.jpeg", true)); // the same name always gets the same suffix
    // A character outside the first plane is two units and is never split.
    std::u16string pair = std::u16string(63, u'x') + u"\U0001F600";
    EXPECT_EQ(DiscName(pair, false), std::u16string(63, u'x'));

    if (!HaveXorriso()) GTEST_SKIP() << "xorriso is needed to read the image back";
    SyntheticVolume v(64 * 1024);
    CNode* f1 = v.File(stem + u"1.jpeg", 2, 3000);
    CNode* f2 = v.File(stem + u"2.jpeg", 10, 5000);
    CNode* f3 = v.File(u"plain.txt", 20, 100);
    CNode* f4 = v.File(u"plain.txt", 30, 200); // same name: the walk's counter name
    ScratchDir dir("disc-names");
    TestContext tc;
    tc.ctx.top = v.top.get();
    CapturedMessages msgs;
    DiscRequest disc;
    disc.isoPath = dir / "names.iso";
    SaveResult r = SaveToDisc({{&v.media, v.top.get(), ""}}, tc.ctx, Request(msgs), disc);
    ASSERT_FALSE(r.archiveFailed) << r.writeErrorText;
    EXPECT_EQ(r.files, 4u);
    auto got = ExtractIso(disc.isoPath, dir.path / "out");
    EXPECT_EQ(got[ToUtf8(DiscName(f1->name, false))], v.Bytes(f1));
    EXPECT_EQ(got[ToUtf8(DiscName(f2->name, true))], v.Bytes(f2));
    EXPECT_EQ(got["plain.txt"], v.Bytes(f3));
    EXPECT_EQ(got["0.txt"], v.Bytes(f4));
    // Joliet holds the same names: none was cut or mangled a second time.
    std::string joliet = JolietListing(disc.isoPath);
    EXPECT_NE(joliet.find("'/" + ToUtf8(DiscName(f1->name, false)) + "'"), std::string::npos) << joliet;
    EXPECT_NE(joliet.find("'/" + ToUtf8(DiscName(f2->name, true)) + "'"), std::string::npos) << joliet;
}

TEST(DiscTarget, RefusalsComeBeforeAnythingIsWritten) {
    SyntheticVolume v(256 * 1024);
    v.File(u"big.bin", 0, 200 * 1024);
    ScratchDir dir("disc-refused");
    TestContext tc;
    tc.ctx.top = v.top.get();
    {
        // A medium smaller than the image: both sizes are named, the drive is not written.
        CapturedMessages msgs;
        DiscRequest disc;
        std::string target = dir / "small.iso";
        disc.recorder = "stdio:" + target;
        disc.capacityLimit = 100 * 1024;
        SaveResult r = SaveToDisc({{&v.media, v.top.get(), ""}}, tc.ctx, Request(msgs), disc);
        EXPECT_TRUE(r.archiveFailed);
        EXPECT_EQ(r.files, 0u);
        std::string text;
        ASSERT_TRUE(Shown(msgs, "IDS_DISC_TOO_SMALL", &text));
        EXPECT_NE(text.find("(102400 bytes)"), std::string::npos) << text;
        EXPECT_NE(text.find("the image needs"), std::string::npos) << text;
        std::error_code ec;
        EXPECT_EQ(fs::exists(target, ec) ? fs::file_size(target, ec) : 0u, 0u);
    }
    {
        // An image file of that name is kept unless replacing it was allowed.
        CapturedMessages msgs;
        DiscRequest disc;
        disc.isoPath = dir / "kept.iso";
        test::WriteAll(disc.isoPath, {1, 2, 3});
        SaveResult r = SaveToDisc({{&v.media, v.top.get(), ""}}, tc.ctx, Request(msgs), disc);
        EXPECT_TRUE(r.archiveFailed);
        EXPECT_EQ(test::ReadAll(disc.isoPath), (std::vector<uint8_t>{1, 2, 3}));
        SaveRequest replace = Request(msgs);
        replace.replaceExisting = true;
        r = SaveToDisc({{&v.media, v.top.get(), ""}}, tc.ctx, replace, disc);
        EXPECT_FALSE(r.archiveFailed) << r.writeErrorText;
        EXPECT_GT(test::ReadAll(disc.isoPath).size(), 200u * 1024);
    }
    {
        // A pseudo-drive that holds an image already is a disc with data: erasing needs consent.
        CapturedMessages msgs;
        DiscRequest disc;
        disc.recorder = "stdio:" + (dir / "kept.iso");
        SaveResult r = SaveToDisc({{&v.media, v.top.get(), ""}}, tc.ctx, Request(msgs), disc);
        EXPECT_TRUE(r.archiveFailed);
        EXPECT_TRUE(Shown(msgs, "IDS_DISC_HOLDS_DATA"));
        disc.erase = true;
        r = SaveToDisc({{&v.media, v.top.get(), ""}}, tc.ctx, Request(msgs), disc);
        EXPECT_FALSE(r.archiveFailed) << r.writeErrorText;
        EXPECT_EQ(r.files, 1u);
    }
    {
        // A medium that cannot take the image says why, asked to erase it or not, and keeps what
        // it holds: a file that can only be read is a closed disc, one that can only be written
        // an appendable disc whose earlier sessions cannot be read back.
        const std::string held = dir / "kept.iso";
        const std::vector<uint8_t> before = test::ReadAll(held);
        const struct {
            int openFlags;
            bool erase;
            const char* why;
        } cases[] = {{O_RDONLY, false, "closed"},
                     {O_RDONLY, true, "cannot be erased"},
                     {O_WRONLY, false, "earlier sessions"},
                     {O_WRONLY, true, "cannot be erased"}};
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.why) + (c.erase ? ", erase asked" : ""));
            const int fd = ::open(held.c_str(), c.openFlags);
            ASSERT_GE(fd, 0);
            CapturedMessages msgs;
            DiscRequest disc;
            disc.recorder = "stdio:/dev/fd/" + std::to_string(fd);
            disc.erase = c.erase;
            SaveResult r = SaveToDisc({{&v.media, v.top.get(), ""}}, tc.ctx, Request(msgs), disc);
            ::close(fd);
            EXPECT_TRUE(r.archiveFailed);
            EXPECT_EQ(r.files, 0u);
            std::string text;
            ASSERT_TRUE(Shown(msgs, "IDS_DISC_NOT_WRITABLE", &text));
            EXPECT_NE(text.find(c.why), std::string::npos) << text;
        }
        EXPECT_EQ(test::ReadAll(held), before);
    }
}

struct NoticeEvents final : IScanEvents {
    void OnEnd() override {}
    void OnProgress() override {}
    void OnSignatureScanStart() override {}
    void OnNotice(const UserText& t) override {
        std::lock_guard lk(lock);
        notices.push_back(t.id);
    }
    std::mutex lock;
    std::vector<std::string> notices;
};

TEST(DiscTarget, CancelDuringTheWriteStopsTheRecorderWaitsAndReportsNothingSaved) {
    SyntheticVolume v(4 << 20);
    for (char16_t c : std::u16string(u"abc")) v.File(std::u16string(1, c) + u".bin", 0, 4 << 20);
    ScratchDir dir("disc-cancel");
    g_slow = true;
    {
        // On the recorder: the driver's cancel clears the flags, stops it and waits before telling.
        DiscControl control;
        std::atomic<int64_t> waited{0};
        control.sleep = [&](std::chrono::milliseconds ms) { waited = ms.count(); };
        CapturedMessages msgs;
        DiscRequest disc;
        disc.recorder = "stdio:" + (dir / "cancelled.iso");
        disc.control = &control;
        SaveRequest base = Request(msgs);
        SaveResult r;
        Engines engines;
        engines.burnToDisc = [&](CPhysicalDisk& m, ScanContext& ctx) {
            r = SaveToDisc({{&m, v.top.get(), ""}}, ctx, base, disc);
            return OutcomeOf(r);
        };
        NoticeEvents events;
        CScanDriver driver(v.media, engines, events);
        driver.SetSaveDestination(disc.recorder, 1, disc.recorder);
        driver.SetDiscControl(&control);
        ASSERT_TRUE(driver.Start(OperationKind::Save, RecoveryMode::DeletedFiles));
        for (int i = 0; i < 1000 && !control.Writing() && driver.Running(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        ASSERT_TRUE(control.Writing());
        driver.BeginCancelQuestion();
        driver.AnswerCancelQuestion(true);
        driver.Wait();
        EXPECT_EQ(waited.load(), 5000);
        EXPECT_FALSE(control.Busy());
        EXPECT_EQ(events.notices, std::vector<std::string>{"IDS_ERASE_BURN_CANCELLED"});
        EXPECT_TRUE(r.cancelled);
        EXPECT_EQ(r.files + r.folders + r.bytes, 0u);
        EXPECT_EQ(driver.Result(), Outcome::Stopped);
    }
    {
        // Into an image file: a stop leaves no file behind and nothing counted as saved.
        TestContext tc;
        tc.ctx.top = v.top.get();
        CapturedMessages msgs;
        DiscRequest disc;
        disc.isoPath = dir / "stopped.iso";
        std::thread stopper([&] {
            while (tc.op.done.load() == 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
            tc.op.state = OperationState::Cancel;
        });
        SaveResult r = SaveToDisc({{&v.media, v.top.get(), ""}}, tc.ctx, Request(msgs), disc);
        stopper.join();
        EXPECT_TRUE(r.cancelled);
        EXPECT_EQ(r.files + r.bytes, 0u);
        // Not even a temporary is left beside it.
        std::vector<std::string> left;
        for (auto& e : fs::directory_iterator(dir.path)) left.push_back(e.path().filename().string());
        EXPECT_EQ(left, std::vector<std::string>{"cancelled.iso"});
    }
    g_slow = false;
}

} // namespace
} // namespace kestrin
