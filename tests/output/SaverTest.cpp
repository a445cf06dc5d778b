#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>

#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include "OutputTestUtil.h"
#include "fs/VolumeTree.h"
#include "output/ContentCopy.h"
#include "output/OutputTarget.h"
#include "output/Saver.h"
#include "storage/ByteSource.h"
#include "util/Text.h"

namespace kestrin {
namespace {

namespace fs = std::filesystem;
using test::CapturedMessages;
using test::ReadAll;
using test::ScratchDir;
using test::TestContext;

constexpr size_t kMediaBytes = 64 * 1024;

// Content as a carved item has it: `size` bytes from sector `location` + `startOffset`.
ContentResult RangeContent(CPhysicalDisk& media, const CNode& node, const ContentSink& sink) {
    ContentResult r;
    uint64_t at = node.location * media.GetSectorSize() + node.startOffset;
    uint64_t end = media.ByteSize();
    if (at > end || node.size > end - at) return r; // beyond the source: nothing delivered
    std::vector<uint8_t> buf(size_t(node.size));
    if (node.size && media.Handle()->ReadAt(buf.data(), buf.size(), at) != (long long)buf.size()) return r;
    if (!sink(buf.data(), buf.size())) return r;
    r.written = node.size;
    r.ok = true;
    return r;
}

std::vector<uint8_t> Pattern() {
    std::vector<uint8_t> d(kMediaBytes);
    for (size_t i = 0; i < d.size(); ++i) d[i] = uint8_t(i * 7 + (i >> 9));
    return d;
}

struct Tree {
    std::unique_ptr<CNode> top{MakeTopNode()};
    CNode* vol;
    Tree() {
        vol = new CNode;
        vol->name = u".";
        vol->nameLength = 1;
        vol->flags = 3;
        top->AppendChild(vol);
    }
    CNode* File(CNode* parent, std::u16string name, uint64_t location, uint64_t size, uint32_t recordId = 0) {
        auto* n = new CNode;
        n->name = std::move(name);
        n->nameLength = uint8_t(std::min<size_t>(n->name.size(), 255));
        n->flags = 1;
        n->checked = 1;
        n->location = location;
        n->size = size;
        n->recordId = recordId;
        parent->AppendChild(n);
        return n;
    }
    CNode* Folder(CNode* parent, std::u16string name) {
        auto* n = new CNode;
        n->name = std::move(name);
        n->nameLength = uint8_t(n->name.size());
        n->flags = 3;
        parent->AppendChild(n);
        return n;
    }
};

struct SaverFixture : ::testing::Test {
    CPhysicalDisk media;
    TestContext tc;
    Tree tree;
    CapturedMessages msgs;
    void SetUp() override {
        media.Attach(std::make_unique<MemorySource>(Pattern()));
        media.SetSectorSize(512);
        media.SetSectorCount(kMediaBytes / 512);
        tc.ctx.top = tree.top.get();
    }
    SaveRequest Request(const std::string& dest, uint8_t mode = kCollisionRename) {
        SaveRequest r;
        r.destination = dest;
        r.collisionMode = mode;
        r.content = &RangeContent;
        r.messages = &msgs;
        return r;
    }
    std::vector<uint8_t> Expected(const CNode* n) {
        auto p = Pattern();
        size_t at = size_t(n->location * 512 + n->startOffset);
        return {p.begin() + long(at), p.begin() + long(at + n->size)};
    }
};

std::string Text(const std::string& path) {
    auto b = ReadAll(path);
    return {b.begin(), b.end()};
}

TEST_F(SaverFixture, SavesTickedItemsWithFoldersContentAndDates) {
    ScratchDir dir("save-basic");
    CNode* docs = tree.Folder(tree.vol, u"docs");
    CNode* a = tree.File(docs, u"a.txt", 3, 1000);
    a->modifiedDate = uint16_t((44 << 9) | (5 << 5) | 17); // 2024-05-17
    a->startOffset = 100;
    tree.File(tree.vol, u"b.txt", 1, 10)->checked = 0;
    CNode* c = tree.File(tree.vol, u"c.txt", 20, 0);
    CNode* lost = tree.Folder(tree.vol, u"Lost");
    tree.File(lost, u"unticked", 1, 1)->checked = 0;

    SaveResult r = SaveMarked(media, tc.ctx, Request(dir.path.string()));
    EXPECT_TRUE(r.started);
    EXPECT_EQ(r.files, 2u);
    EXPECT_EQ(r.folders, 1u);
    EXPECT_EQ(r.incomplete, 0u);
    EXPECT_EQ(ReadAll(dir / "docs/a.txt"), Expected(a));
    EXPECT_EQ(ReadAll(dir / "c.txt"), Expected(c));
    EXPECT_FALSE(fs::exists(dir / "b.txt"));
    EXPECT_FALSE(fs::exists(dir / "Lost"));
    EXPECT_FALSE(fs::exists(dir / "log.txt"));
    int64_t midnight = 0;
    ASSERT_TRUE(LocalTimeOfDosDate(a->modifiedDate, midnight));
    struct stat st;
    ASSERT_EQ(::stat((dir / "docs/a.txt").c_str(), &st), 0);
    EXPECT_EQ(st.st_mtime, midnight);
    EXPECT_EQ(tc.op.done.load(), 1000);
    EXPECT_EQ(tc.op.total.load(), 1000);

    // Deleted-only keeps to the marked view; a stop before the walk saves nothing.
    ScratchDir dir2("save-deleted");
    a->inDeletedView = 1;
    docs->inDeletedView = 1;
    SaveRequest req = Request(dir2.path.string());
    req.deletedOnly = true;
    r = SaveMarked(media, tc.ctx, req);
    EXPECT_EQ(r.files, 1u);
    EXPECT_TRUE(fs::exists(dir2 / "docs/a.txt"));
    EXPECT_FALSE(fs::exists(dir2 / "c.txt"));
    ScratchDir dir3("save-stopped");
    tc.op.state = OperationState::Cancel;
    r = SaveMarked(media, tc.ctx, Request(dir3.path.string()));
    EXPECT_TRUE(r.cancelled);
    EXPECT_TRUE(fs::is_empty(dir3.path));
}

// Ticked "Lost" and "$Extend" folders (and the folders below "$Extend") holding nothing ticked
// are not created; an ordinary empty folder the user ticked still is, and "Lost" comes back as
// soon as something ticked lies inside it.
TEST_F(SaverFixture, SystemFoldersAreNeverCreatedEmpty) {
    ScratchDir dir("save-system");
    CNode* lost = tree.Folder(tree.vol, u"Lost");
    lost->flags = kNodeFolder;
    CNode* extend = tree.Folder(tree.vol, u"$Extend");
    CNode* txf = tree.Folder(extend, u"$Txf");
    CNode* empty = tree.Folder(tree.vol, u"empty");
    for (CNode* f : {lost, extend, txf, empty}) f->checked = 1;
    tree.File(extend, u"$Quota", 1, 10)->checked = 0;
    SaveResult r = SaveMarked(media, tc.ctx, Request(dir.path.string()));
    EXPECT_EQ(r.folders, 1u);
    EXPECT_TRUE(fs::is_directory(dir / "empty"));
    EXPECT_FALSE(fs::exists(dir / "Lost"));
    EXPECT_FALSE(fs::exists(dir / "$Extend"));

    ScratchDir dir2("save-system-used");
    CNode* orphan = tree.Folder(lost, u"#70");
    tree.File(orphan, u"a.txt", 2, 5);
    tree.File(txf, u"log", 3, 5);
    r = SaveMarked(media, tc.ctx, Request(dir2.path.string()));
    EXPECT_EQ(r.files, 2u);
    EXPECT_TRUE(fs::exists(dir2 / "Lost/#70/a.txt"));
    EXPECT_TRUE(fs::exists(dir2 / "$Extend/$Txf/log"));
}

TEST_F(SaverFixture, CollisionModes) {
    struct Case {
        uint8_t mode;
        std::set<std::string> files; // what the destination holds afterwards
        int questions;
    } cases[] = {
        {kCollisionRename, {"a.txt", "z.txt", "0.txt", "1.txt"}, 0},
        {kCollisionRenameByNumber, {"a.txt", "z.txt", "77.txt", "78.txt"}, 0},
        {kCollisionSkipOnce, {"a.txt", "z.txt"}, 1}, // skips a, asks again for z
        {kCollisionSkip, {"a.txt", "z.txt"}, 0},
        {kCollisionAsk, {"a.txt", "z.txt", "typed.txt"}, 2},
    };
    tree.File(tree.vol, u"a.txt", 1, 5, 77);
    tree.File(tree.vol, u"z.txt", 2, 6, 78);
    for (auto& c : cases) {
        ScratchDir dir("collide-" + std::to_string(c.mode));
        test::WriteAll(dir / "a.txt", {'o', 'l', 'd'});
        test::WriteAll(dir / "z.txt", {'o', 'l', 'd'});
        SaveRequest req = Request(dir.path.string(), c.mode);
        int questions = 0;
        req.askRename = [&](std::u16string& name, uint32_t code, uint8_t& mode) {
            EXPECT_EQ(code, 80u);
            if (++questions == 1 && c.mode == kCollisionAsk) {
                EXPECT_EQ(name, u"a.txt");
                name = u"typed.txt";
                return true;
            }
            EXPECT_EQ(name, u"z.txt");
            if (c.mode == kCollisionAsk) mode = kCollisionSkip; // "skip all"
            return c.mode == kCollisionAsk;
        };
        SaveMarked(media, tc.ctx, req);
        std::set<std::string> got;
        for (auto& e : fs::directory_iterator(dir.path)) got.insert(e.path().filename().string());
        EXPECT_EQ(got, c.files) << int(c.mode);
        EXPECT_EQ(questions, c.questions) << int(c.mode);
        EXPECT_EQ(Text(dir / "a.txt"), "old") << int(c.mode);
    }
}

// A folder target that refuses names on purpose, to reach every error class.
class CRefusingTarget final : public COutputTarget {
public:
    CRefusingTarget(std::unique_ptr<COutputTarget> real, uint32_t code, size_t refusals)
        : m_real(std::move(real)), m_code(code), m_refusals(refusals) {}
    uint32_t Open() override { return m_real->Open(); }
    uint32_t CreateFolder(const std::u16string& name) override { return Try(name, true); }
    void LeaveFolder() override { m_real->LeaveFolder(); }
    uint32_t CreateFile(const std::u16string& name) override { return Try(name, false); }
    FileOutcome WriteFile(CPhysicalDisk& m, const CNode& n, ContentWriter c, const AdvanceFn& a) override {
        return m_real->WriteFile(m, n, c, a);
    }
    void RemoveRegularFile(const std::u16string& name) override { removed.push_back(name); }
    std::string CurrentFolder() const override { return m_real->CurrentFolder(); }
    bool OpenLog() override { return m_real->OpenLog(); }
    void WriteLog(const std::u16string& text) override { m_real->WriteLog(text); }
    void Finish(SaveResult& r) override { m_real->Finish(r); }

    std::vector<std::u16string> tried, removed;

private:
    uint32_t Try(const std::u16string& name, bool folder) {
        tried.push_back(name);
        if (tried.size() <= m_refusals) return m_code;
        return folder ? m_real->CreateFolder(name) : m_real->CreateFile(name);
    }
    std::unique_ptr<COutputTarget> m_real;
    uint32_t m_code;
    size_t m_refusals;
};

TEST_F(SaverFixture, EveryErrorClass) {
    tree.File(tree.vol, u"photo.jpg", 1, 4, 9);
    struct Case {
        uint32_t code;
        uint8_t mode;
        bool renamed;
        bool removes;
    } cases[] = {
        {3, kCollisionRename, true, false},   {123, kCollisionRename, true, false},
        {161, kCollisionRename, true, false}, {206, kCollisionRename, true, false},
        {80, kCollisionRename, true, false},  {183, kCollisionRename, true, false},
        {5, kCollisionRename, false, false},  {112, kCollisionRename, false, false},
        {206, kCollisionRenameByNumber, true, true}, {80, kCollisionRenameByNumber, true, false},
    };
    for (auto& c : cases) {
        ScratchDir dir("errors");
        CRefusingTarget target(MakeFolderTarget(dir.path.string()), c.code, 1);
        SaveRequest req = Request(dir.path.string(), c.mode);
        SaveResult r = SaveInto(target, media, tc.ctx, req);
        std::string at = std::to_string(c.code) + "/" + std::to_string(c.mode);
        EXPECT_EQ(r.files, c.renamed ? 1u : 0u) << at;
        EXPECT_EQ(target.tried.size(), c.renamed ? 2u : 1u) << at;
        if (c.renamed) {
            EXPECT_EQ(target.tried[1], c.mode == kCollisionRename ? u"0.jpg" : u"9.jpg") << at;
        }
        EXPECT_EQ(target.removed.size(), c.removes ? 1u : 0u) << at;
    }
}

TEST_F(SaverFixture, CounterNamesThenTheLog) {
    CNode* docs = tree.Folder(tree.vol, u"docs");
    tree.File(docs, u"report.final.doc", 1, 4);
    tree.File(docs, u"noext", 2, 4);
    ScratchDir dir("counter");
    CRefusingTarget target(MakeFolderTarget(dir.path.string()), 183, 1); // the folder once
    SaveRequest req = Request(dir.path.string());
    auto refuseAll = std::make_unique<CRefusingTarget>(MakeFolderTarget(dir.path.string()), 123, 100000);
    SaveResult r = SaveInto(*refuseAll, media, tc.ctx, req);
    // The folder itself is refused every time: 1 + 1,996 names, then it is logged.
    ASSERT_EQ(refuseAll->tried.size(), 1997u);
    EXPECT_EQ(refuseAll->tried[1], u"0docs");
    EXPECT_EQ(refuseAll->tried[996], u"995docs");
    EXPECT_EQ(refuseAll->tried[997], u"996_docs");
    EXPECT_EQ(refuseAll->tried[1996], u"1995_docs");
    EXPECT_EQ(r.logged, 1u);
    EXPECT_EQ(r.skipped, 1u);

    r = SaveInto(target, media, tc.ctx, req);
    EXPECT_EQ(target.tried[1], u"0docs");
    EXPECT_TRUE(fs::exists(dir / "0docs/report.final.doc"));
    EXPECT_TRUE(fs::exists(dir / "0docs/noext"));

    // The log: UTF-16 little-endian without a byte-order mark, header exactly as the program writes it.
    auto log = ReadAll(dir / "log.txt");
    std::u16string text;
    for (size_t i = 0; i + 1 < log.size(); i += 2) text.push_back(char16_t(log[i] | log[i + 1] << 8));
    EXPECT_EQ(text, u"The following files were not saved dude to long-file path/rename issues: \n" +
                        ToUtf16(dir.path.string()) + u"/1995_docs\n");
}

TEST_F(SaverFixture, HostileNamesStayInsideTheDestination) {
    ScratchDir dir("hostile");
    ScratchDir outside("hostile-outside");
    test::WriteAll(outside / "target.txt", {'k', 'e', 'e', 'p'});
    fs::create_directory_symlink(outside.path, dir.path / "evil");
    fs::create_symlink(outside.path / "target.txt", dir.path / "link.txt");
    const std::u16string names[] = {u"..", u"a/../../x", u"con", u"../../escape.txt", u"",
                                    std::u16string(u"nul\0x.txt", 9)};
    for (auto& name : names) tree.File(tree.vol, name, 1, 3);
    tree.File(tree.vol, std::u16string(300, u'n') + u".txt", 1, 3);
    tree.File(tree.vol, u"link.txt", 1, 3);
    CNode* evil = tree.Folder(tree.vol, u"evil");
    tree.File(evil, u"inside.txt", 1, 3);
    CNode* dots = tree.Folder(tree.vol, u"..");
    tree.File(dots, u"deep.txt", 1, 3);

    SaveResult r = SaveMarked(media, tc.ctx, Request(dir.path.string()));
    EXPECT_EQ(r.files, 10u);
    EXPECT_EQ(r.logged, 0u);
    // Nothing new outside, nothing followed through a link.
    std::set<std::string> outsideFiles;
    for (auto& e : fs::recursive_directory_iterator(outside.path)) outsideFiles.insert(e.path().filename().string());
    EXPECT_EQ(outsideFiles, std::set<std::string>{"target.txt"});
    EXPECT_EQ(Text(outside / "target.txt"), "keep");
    EXPECT_FALSE(fs::exists(dir.path.parent_path() / "escape.txt"));
    size_t regular = 0;
    std::string root = fs::canonical(dir.path).string();
    for (auto& e : fs::recursive_directory_iterator(dir.path)) {
        if (e.is_symlink()) continue;
        EXPECT_EQ(fs::canonical(e.path()).string().rfind(root, 0), 0u) << e.path();
        regular += e.is_regular_file();
    }
    EXPECT_EQ(regular, 10u);
    EXPECT_TRUE(fs::exists(dir / "con"));
    EXPECT_TRUE(fs::exists(dir / "0evil/inside.txt"));
    EXPECT_TRUE(fs::exists(dir / "0.")); // the file ".."
    EXPECT_TRUE(fs::exists(dir / "1./deep.txt")); // the folder "..", after it
    EXPECT_TRUE(fs::exists(dir / "0._x"));
}

TEST_F(SaverFixture, FatLimitAndDestinationChecks) {
    ScratchDir dir("fat");
    CNode* big = tree.File(tree.vol, u"big.bin", 0, kFatFileLimit);
    tree.File(tree.vol, u"fits.bin", 0, kFatFileLimit - 1);
    SaveRequest req = Request(dir.path.string());
    req.destinationIsFat = true;
    SaveResult r = SaveMarked(media, tc.ctx, req);
    EXPECT_EQ(r.refusedFat, 1u);
    ASSERT_EQ(msgs.shown.size(), 1u);
    EXPECT_EQ(msgs.shown[0].id, "IDS_CANNOT_SAVE_4GB_FILE");
    EXPECT_FALSE(fs::exists(dir / "big.bin"));
    EXPECT_TRUE(fs::exists(dir / "fits.bin")); // created; the test content cannot deliver 4 GiB
    EXPECT_EQ(r.incomplete, 1u);
    EXPECT_FALSE(IsFatFolder(dir.path.string()));

    // Free space, then the source's own drive.
    msgs.shown.clear();
    big->size = 1ull << 62;
    EXPECT_FALSE(CheckDestination(media, tree.top.get(), Request(dir.path.string()), msgs));
    ASSERT_EQ(msgs.shown.size(), 1u);
    EXPECT_EQ(msgs.shown[0].id, "IDS_INSUFFICIENT_DISK_SPACE_TO_STORE");
    tree.vol->firstChild->checked = 0;
    tree.vol->firstChild->nextSibling->checked = 0;
    tree.File(tree.vol, u"small", 0, 10);
    EXPECT_TRUE(CheckDestination(media, tree.top.get(), Request(dir.path.string()), msgs));
    test::WriteAll(dir / "src.img", std::vector<uint8_t>(4096));
    CPhysicalDisk image;
    ASSERT_TRUE(image.AttachImageFile(dir / "src.img"));
    msgs.shown.clear();
    EXPECT_FALSE(CheckDestination(image, tree.top.get(), Request(dir.path.string()), msgs));
    ASSERT_EQ(msgs.shown.size(), 1u);
    EXPECT_EQ(msgs.shown[0].id, "IDS_TRYING_TO_SAVE_DATA_ON_SAME");
}

TEST_F(SaverFixture, ZipKeepsFoldersAndContent) {
    ScratchDir dir("zip");
    CNode* docs = tree.Folder(tree.vol, u"docs");
    CNode* a = tree.File(docs, u"a.txt", 3, 3000);
    CNode* b = tree.File(docs, u"a.txt", 5, 700); // same name: renamed inside the archive
    CNode* big = tree.File(tree.vol, u"pic.jpg", 0, kMediaBytes);
    tree.File(tree.vol, u"gone.bin", 1000, 10); // past the source: stored short, counted
    std::string zipPath = dir / "out.zip";
    SaveResult r = SaveMarked(media, tc.ctx, Request(zipPath));
    EXPECT_FALSE(r.archiveFailed);
    EXPECT_EQ(r.files, 4u);
    EXPECT_EQ(r.incomplete, 1u);
    int err = 0;
    zip_t* z = zip_open(zipPath.c_str(), ZIP_RDONLY, &err);
    ASSERT_NE(z, nullptr);
    auto entry = [&](const char* name) {
        std::vector<uint8_t> out;
        zip_stat_t st;
        if (zip_stat(z, name, 0, &st) != 0) return out;
        zip_file_t* f = zip_fopen(z, name, 0);
        out.resize(size_t(st.size));
        EXPECT_EQ(zip_fread(f, out.data(), out.size()), zip_int64_t(out.size()));
        zip_fclose(f);
        return out;
    };
    EXPECT_GE(zip_name_locate(z, "docs/", 0), 0);
    EXPECT_EQ(entry("docs/a.txt"), Expected(a));
    EXPECT_EQ(entry("docs/0.txt"), Expected(b));
    EXPECT_EQ(entry("pic.jpg"), Expected(big));
    zip_close(z);
}

TEST_F(SaverFixture, SourceImageIsNeverWritten) {
    ScratchDir dir("untouched");
    ScratchDir dest("untouched-dest");
    test::WriteAll(dir / "src.img", Pattern());
    CPhysicalDisk image;
    ASSERT_TRUE(image.AttachImageFile(dir / "src.img"));
    auto before = ReadAll(dir / "src.img");
    tree.File(tree.vol, u"x.bin", 2, 5000);
    SaveMarked(image, tc.ctx, Request(dest.path.string()));
    SaveMarked(image, tc.ctx, Request(dest / "x.zip"));
    EXPECT_EQ(ReadAll(dest / "x.bin").size(), 5000u);
    EXPECT_EQ(ReadAll(dir / "src.img"), before);
}

// A destination that fills up after this many bytes: writes then fail as a full disk does.
std::atomic<long> g_roomLeft{0};
long WriteUntilFull(int fd, const void* data, size_t len) {
    long room = g_roomLeft.load();
    if (room <= 0) {
        errno = ENOSPC;
        return -1;
    }
    long n = long(std::min<size_t>(len, size_t(room)));
    n = long(::write(fd, data, size_t(n)));
    if (n > 0) g_roomLeft -= n;
    return n;
}

std::u16string LogText(const std::string& path) {
    auto log = ReadAll(path);
    std::u16string text;
    for (size_t i = 0; i + 1 < log.size(); i += 2) text.push_back(char16_t(log[i] | log[i + 1] << 8));
    return text;
}

TEST_F(SaverFixture, FullDestinationIsAWriteErrorNotAReadError) {
    ScratchDir dir("full");
    tree.File(tree.vol, u"small.bin", 1, 1000);
    tree.File(tree.vol, u"big.bin", 2, 30000);
    tree.File(tree.vol, u"after.bin", 3, 0);
    g_roomLeft = 1000 + 4000; // the first file fits, the second does not; the walk goes on
    auto target = MakeFolderTarget(dir.path.string(), &WriteUntilFull);
    SaveResult r = SaveInto(*target, media, tc.ctx, Request(dir.path.string()));
    EXPECT_EQ(r.files, 2u);
    EXPECT_EQ(r.bytes, 1000u); // the removed partial file's bytes are not counted as saved
    EXPECT_EQ(r.writeErrors, 1u);
    EXPECT_TRUE(r.diskFull);
    EXPECT_EQ(r.writeErrorText, std::strerror(ENOSPC));
    EXPECT_EQ(r.incomplete, 0u); // nothing was unreadable
    EXPECT_FALSE(fs::exists(dir / "big.bin")); // no partial file passes for a saved one
    EXPECT_EQ(ReadAll(dir / "small.bin").size(), 1000u);
    EXPECT_TRUE(fs::exists(dir / "after.bin"));
    EXPECT_EQ(r.logPath, dir / "log.txt");
    EXPECT_NE(LogText(r.logPath).find(u"could not be written"), std::u16string::npos);
    EXPECT_NE(LogText(r.logPath).find(u"/big.bin\n"), std::u16string::npos);
}

TEST_F(SaverFixture, ContentPastTheSourceEndIsCountedAndLoggedAndTheLogNeverReplacesAFile) {
    ScratchDir dir("pastend");
    test::WriteAll(dir / "log.txt", {'m', 'i', 'n', 'e'}); // the user's own log.txt
    // A truncated image: the volume claims more sectors than the file holds. A carved item that
    // runs past the end reads short, which succeeds, but those bytes were never there.
    media.SetSectorCount(kMediaBytes / 512 + 100);
    CNode* cut = tree.File(tree.vol, u"cut.bin", kMediaBytes / 512 - 2, 3000);
    cut->carved = true;
    tree.File(tree.vol, u"whole.bin", 1, 700)->carved = true;
    SaveRequest req = Request(dir.path.string());
    req.content = &WriteNodeContent;
    SaveResult r = SaveMarked(media, tc.ctx, req);
    EXPECT_EQ(r.files, 2u);
    EXPECT_EQ(r.incomplete, 1u);
    EXPECT_EQ(r.unreadableBytes, 3000u - 1024u);
    // What could be read is kept; the rest is counted, not passed off as data.
    auto pattern = Pattern();
    EXPECT_EQ(ReadAll(dir / "cut.bin"), std::vector<uint8_t>(pattern.end() - 1024, pattern.end()));
    EXPECT_EQ(Text(dir / "log.txt"), "mine");
    EXPECT_EQ(r.logPath, dir / "log (2).txt");
    EXPECT_NE(LogText(r.logPath).find(u"Saved with unreadable parts (1976 of 3000 bytes"), std::u16string::npos);
}

TEST_F(SaverFixture, ControlCharactersNeverReachASavedName) {
    ScratchDir dir("controls");
    const std::u16string names[] = {u"\x1b[31mred.txt", u"bell\a.txt", u"new\nline.txt", u"del\x7f.txt",
                                    u"c1\x9b.txt", u"\u202egpj.exe", u"plain.txt"};
    for (auto& name : names) tree.File(tree.vol, name, 1, 3);
    SaveResult r = SaveMarked(media, tc.ctx, Request(dir.path.string()));
    EXPECT_EQ(r.files, 7u);
    std::set<std::string> saved;
    for (auto& e : fs::directory_iterator(dir.path)) saved.insert(e.path().filename().string());
    for (const std::string& name : saved)
        for (char16_t c : ToUtf16(name)) EXPECT_FALSE(IsControlOrOverride(c)) << name;
    EXPECT_TRUE(saved.count("plain.txt"));
    EXPECT_TRUE(saved.count("0.txt"));
    EXPECT_TRUE(saved.count("0.exe"));
}

TEST_F(SaverFixture, ZipReplacesAnExistingFileOnlyWithConsent) {
    ScratchDir dir("zip-consent");
    tree.File(tree.vol, u"a.bin", 1, 100);
    std::string zipPath = dir / "out.zip";
    test::WriteAll(zipPath, {'o', 'l', 'd'});
    SaveResult r = SaveMarked(media, tc.ctx, Request(zipPath));
    EXPECT_FALSE(r.started);
    EXPECT_EQ(Text(zipPath), "old");
    SaveRequest req = Request(zipPath);
    req.replaceExisting = true;
    r = SaveMarked(media, tc.ctx, req);
    EXPECT_EQ(r.files, 1u);
    EXPECT_NE(Text(zipPath), "old");
    // Cancelled before it ends: the archive never appears, and no temporary is left.
    std::string stopped = dir / "stopped.zip";
    tc.op.state = OperationState::Cancel;
    r = SaveMarked(media, tc.ctx, Request(stopped));
    EXPECT_FALSE(fs::exists(stopped));
    size_t entries = 0;
    for (auto& e : fs::directory_iterator(dir.path)) entries += e.path().filename() != "out.zip";
    EXPECT_EQ(entries, 0u);
}

// ':' separates a file from its stream on NTFS ("report.txt:Zone.Identifier" items): it is saved
// as '_', beside the file itself.
TEST_F(SaverFixture, StreamItemsAreSavedWithoutTheColon) {
    ScratchDir dir("streams");
    CNode* docs = tree.Folder(tree.vol, u"docs");
    docs->checked = 1;
    CNode* file = tree.File(docs, u"report.txt", 1, 10);
    CNode* stream = tree.File(docs, u"report.txt:Zone.Identifier", 3, 26);
    SaveResult r = SaveMarked(media, tc.ctx, Request(dir.path.string(), kCollisionAsk));
    EXPECT_EQ(r.files, 2u);
    EXPECT_EQ(ReadAll((dir.path / "docs/report.txt").string()), Expected(file));
    EXPECT_EQ(ReadAll((dir.path / "docs/report.txt_Zone.Identifier").string()), Expected(stream));
}

} // namespace
} // namespace kestrin
