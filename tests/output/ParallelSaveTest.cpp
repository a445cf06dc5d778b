// Carved items of a folder save are written on two threads; everything the user sees must be what
// the one-thread save gives: the same files and bytes, counts, log lines in walk order, and a stop
// or a failed write never leaves a partial file behind as saved.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include "OutputTestUtil.h"
#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "output/ContentCopy.h"
#include "output/OutputTarget.h"
#include "output/Saver.h"
#include "storage/ByteSource.h"

namespace kestrin {
namespace {

namespace fs = std::filesystem;
using test::ReadAll;
using test::ScratchDir;
using test::TestContext;

constexpr size_t kImageBytes = 6u << 20;

std::vector<uint8_t> Image() {
    std::vector<uint8_t> d(kImageBytes);
    for (size_t i = 0; i < d.size(); ++i) d[i] = uint8_t(i * 13 + (i >> 11));
    return d;
}

// Two folders of carved items: many small ones, a few of several runs, some starting inside their
// first sector, and the last of each folder running past the end of the image.
struct CarvedTree {
    std::unique_ptr<CNode> top{MakeTopNode()};
    std::vector<const CNode*> files;
    CarvedTree() {
        CNode* vol = Add(top.get(), u".", true);
        for (const char16_t* folder : {u"jpg", u"zip"}) {
            CNode* dir = Add(vol, folder, true);
            for (int i = 0; i < 60; ++i) {
                CNode* f = Add(dir, folder + std::u16string(u"_") + char16_t(u'A' + i % 26) + char16_t(u'a' + i / 26),
                               false);
                f->location = uint64_t(i) * 97 % (kImageBytes / 512);
                f->startOffset = uint32_t(i % 3 ? 0 : i);
                f->size = i % 10 == 9 ? (3u << 20) + uint64_t(i) : 1000 + uint64_t(i) * 777;
                f->modifiedDate = uint16_t((40 << 9) | (3 << 5) | (1 + i % 28));
            }
            CNode* cut = Add(dir, u"cut", false);
            cut->location = kImageBytes / 512 - 4;
            cut->size = 5000;
            cut->modifiedDate = uint16_t((40 << 9) | (3 << 5) | 1);
        }
    }
    CNode* Add(CNode* parent, std::u16string name, bool folder) {
        auto* n = new CNode;
        n->name = std::move(name);
        n->nameLength = uint8_t(n->name.size());
        n->flags = folder ? 3 : 1;
        n->checked = 1;
        n->carved = !folder;
        parent->AppendChild(n);
        if (!folder) files.push_back(n);
        return n;
    }
};

using SavedFiles = std::map<std::string, std::pair<std::vector<uint8_t>, time_t>>;

// Every regular file below `root` with its bytes and modification time, by path from `root`.
SavedFiles Saved(const fs::path& root) {
    SavedFiles out;
    for (auto& e : fs::recursive_directory_iterator(root)) {
        if (!e.is_regular_file() || e.path().filename().string().starts_with("log")) continue;
        struct stat st;
        ::stat(e.path().c_str(), &st);
        out[fs::relative(e.path(), root).string()] = {ReadAll(e.path()), st.st_mtime};
    }
    return out;
}

// The paths whose bytes or times differ, or that only one side holds.
std::string Differences(const SavedFiles& a, const SavedFiles& b) {
    std::string out;
    for (auto& [path, file] : a) {
        auto it = b.find(path);
        if (it == b.end()) out += path + " (only first) ";
        else if (it->second.first != file.first) out += path + " (bytes) ";
        else if (it->second.second != file.second) out += path + " (time) ";
    }
    for (auto& [path, file] : b)
        if (!a.count(path)) out += path + " (only second) ";
    return out;
}

std::string LogOf(const SaveResult& r, const fs::path& root) {
    if (r.logPath.empty()) return {};
    auto bytes = ReadAll(r.logPath);
    std::string text;
    for (size_t i = 0; i < bytes.size(); i += 2) text.push_back(char(bytes[i]));
    for (size_t at; (at = text.find(root.string())) != std::string::npos;) text.replace(at, root.string().size(), "ROOT");
    return text;
}

// Writes fail for files whose name ends in "Ab" (with EIO) or "Bb" (full), next to each other in
// the walk: chosen by name, so the failure hits the same files whichever thread writes them.
long FailSomeFiles(int fd, const void* data, size_t len) {
    char link[64], path[4096];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    ssize_t n = ::readlink(link, path, sizeof path - 1);
    std::string name(path, n > 0 ? size_t(n) : 0);
    if (name.ends_with("Ab") || name.ends_with("Bb")) {
        errno = name.ends_with("Ab") ? EIO : ENOSPC;
        return -1;
    }
    return long(::write(fd, data, len));
}

// Asks for a stop once this much has been written, from whichever thread writes.
std::atomic<long> g_untilStop{0};
ScanOperation* g_op = nullptr;
long StopPartway(int fd, const void* data, size_t len) {
    if (g_untilStop.fetch_sub(long(len)) <= long(len)) g_op->state = OperationState::Cancel;
    return long(::write(fd, data, len));
}

struct ParallelSave : ::testing::Test {
    ScratchDir dir{"parallel"};
    CarvedTree tree;
    CPhysicalDisk image;  // read by positioned reads: files go to the helper thread
    CPhysicalDisk memory; // the same bytes in memory: one thread only
    void SetUp() override {
        test::WriteAll(dir / "source.img", Image());
        ASSERT_TRUE(image.AttachImageFile(dir / "source.img", 512));
        ASSERT_TRUE(image.Handle()->ConcurrentReads());
        memory.Attach(std::make_unique<MemorySource>(Image()));
        memory.SetSectorSize(512);
        memory.SetSectorCount(kImageBytes / 512);
        ASSERT_FALSE(memory.Handle()->ConcurrentReads());
    }
    SaveResult Save(CPhysicalDisk& media, const fs::path& to, WriteFn write = nullptr) {
        fs::create_directories(to);
        TestContext tc;
        tc.ctx.top = tree.top.get();
        g_op = &tc.op;
        SaveRequest req;
        req.destination = to.string();
        req.content = &WriteNodeContent;
        auto target = MakeFolderTarget(to.string(), write);
        return SaveInto(*target, media, tc.ctx, req);
    }
};

void ExpectSameResult(const SaveResult& a, const SaveResult& b) {
    EXPECT_EQ(a.cancelled, b.cancelled);
    EXPECT_EQ(a.folders, b.folders);
    EXPECT_EQ(a.files, b.files);
    EXPECT_EQ(a.bytes, b.bytes);
    EXPECT_EQ(a.incomplete, b.incomplete);
    EXPECT_EQ(a.unreadableBytes, b.unreadableBytes);
    EXPECT_EQ(a.writeErrors, b.writeErrors);
    EXPECT_EQ(a.diskFull, b.diskFull);
    EXPECT_EQ(a.writeErrorText, b.writeErrorText);
}

TEST_F(ParallelSave, SavesWhatOneThreadSaves) {
    SaveResult one = Save(memory, dir.path / "one");
    SaveResult two = Save(image, dir.path / "two");
    ExpectSameResult(two, one);
    EXPECT_EQ(one.files, tree.files.size());
    EXPECT_EQ(one.incomplete, 2u); // the two items past the image's end
    EXPECT_EQ(Differences(Saved(dir.path / "two"), Saved(dir.path / "one")), "");
    EXPECT_EQ(LogOf(two, dir.path / "two"), LogOf(one, dir.path / "one"));
}

TEST_F(ParallelSave, FailedWritesAreCountedInWalkOrderAndRemoved) {
    SaveResult one = Save(memory, dir.path / "one", &FailSomeFiles);
    SaveResult two = Save(image, dir.path / "two", &FailSomeFiles);
    ExpectSameResult(two, one);
    EXPECT_EQ(two.writeErrors, 4u);
    EXPECT_TRUE(two.diskFull);
    EXPECT_EQ(two.writeErrorText, std::strerror(EIO)); // the first failure in walk order
    auto saved = Saved(dir.path / "two");
    EXPECT_EQ(Differences(saved, Saved(dir.path / "one")), "");
    EXPECT_EQ(saved.size(), tree.files.size() - 4);
    EXPECT_FALSE(fs::exists(dir.path / "two" / "jpg" / "jpg_Ab"));
    std::string log = LogOf(two, dir.path / "two");
    EXPECT_EQ(log, LogOf(one, dir.path / "one"));
    EXPECT_LT(log.find("jpg/jpg_Ab"), log.find("jpg/jpg_Bb"));
}

TEST_F(ParallelSave, StopLeavesOnlyWholeFilesReportedAsSaved) {
    g_untilStop = 6 << 20;
    SaveResult r = Save(image, dir.path / "two", &StopPartway);
    EXPECT_TRUE(r.cancelled);
    auto saved = Saved(dir.path / "two");
    EXPECT_LT(saved.size(), tree.files.size());
    EXPECT_EQ(saved.size(), r.files);
    // Every file left is whole: the same bytes the one-thread save writes.
    g_untilStop = long(1) << 40;
    Save(memory, dir.path / "one");
    auto whole = Saved(dir.path / "one");
    for (auto& [path, file] : saved) EXPECT_TRUE(file == whole[path]) << path;
}

} // namespace
} // namespace kestrin
