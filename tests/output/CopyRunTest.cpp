// Carved items saved from an image file into a folder: whole runs go from file to file, and the
// file, the bytes counted as unreadable and the progress are what reading and writing give.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TestImages.h"
#include "fs/CNode.h"
#include "fs/VolumeHandle.h"
#include "fs/VolumeTree.h"
#include "job/QuietScanEvents.h"
#include "output/ContentCopy.h"
#include "output/OutputTarget.h"
#include "output/Saver.h"
#include "scan/CScanDriver.h"
#include "session/EngineTable.h"
#include "session/Source.h"
#include "storage/CPhysicalDisk.h"
#include "util/Text.h"

namespace kestrin::test {
namespace {

std::vector<uint8_t> ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

long CountingWrite(int fd, const void* p, size_t n) { return long(::write(fd, p, n)); }

TEST(CopyRun, SavedFileMatchesTheSourceWithOrWithoutKernelCopies) {
    char dir[] = "/tmp/kestrin-copyrun-XXXXXX";
    ASSERT_NE(::mkdtemp(dir), nullptr);
    const std::string image = std::string(dir) + "/image.bin";
    std::vector<uint8_t> bytes(5 * (1 << 20) + 700);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = uint8_t(i * 31 + (i >> 11));
    std::ofstream(image, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));

    CPhysicalDisk disk;
    ASSERT_TRUE(disk.AttachImageFile(image));
    std::unique_ptr<CNode> top(MakeTopNode());
    // Wholly on the source (two whole runs and a short one), and one that runs past its end.
    CNode* inside = AddCarvedFile(top.get(), u"a", 5, 4 * (1 << 20) + 1234, 0);
    CNode* past = AddCarvedFile(top.get(), u"b", 2, 6 * (1 << 20), 0);
    std::vector<uint64_t> unreadable;
    for (WriteFn write : {WriteFn(nullptr), WriteFn(&CountingWrite)}) {
        const std::string out = std::string(dir) + (write ? "/w" : "/k");
        ASSERT_EQ(::mkdir(out.c_str(), 0755), 0);
        auto target = MakeFolderTarget(out, write);
        ASSERT_EQ(target->Open(), 0u);
        for (CNode* n : {inside, past}) {
            ASSERT_EQ(target->CreateFile(n->name), 0u);
            uint64_t advanced = 0;
            FileOutcome r = target->WriteFile(disk, *n, &WriteNodeContent, [&](uint64_t len) {
                advanced += len;
                return true;
            });
            uint64_t from = n->location * 512, end = std::min<uint64_t>(from + n->size, bytes.size());
            EXPECT_EQ(ReadAll(out + "/" + (n == inside ? "a" : "b")),
                      std::vector<uint8_t>(bytes.begin() + ptrdiff_t(from), bytes.begin() + ptrdiff_t(end)));
            EXPECT_EQ(advanced, end - from);
            EXPECT_EQ(r.complete, n == inside);
            // What the source lacks, and for the one past the end also the tail of its last
            // sector, which the read asked for and did not get: the same with and without copies.
            EXPECT_GE(r.unreadable, n->size - (end - from));
            unreadable.push_back(r.unreadable);
        }
        SaveResult done;
        target->Finish(done);
    }
    EXPECT_EQ(unreadable, std::vector<uint64_t>({0, 1048900 + 324, 0, 1048900 + 324}));
    std::string cmd = std::string("rm -rf '") + dir + "'";
    EXPECT_EQ(std::system(cmd.c_str()), 0);
}


// The image's bytes behind a source that counts the runs the kernel copied; reads and copies
// that touch [failFrom, failTo) fail, as both do on a bad stretch of a disk.
class CountingSource final : public ByteSource {
public:
    CountingSource(std::unique_ptr<ByteSource> base, bool canCopy, uint64_t failFrom = 0, uint64_t failTo = 0)
        : m_base(std::move(base)), m_canCopy(canCopy), m_from(failFrom), m_to(failTo) {}
    long long ReadAt(void* buf, size_t len, uint64_t offset) override {
        if (Fails(offset, len)) return -1;
        return m_base->ReadAt(buf, len, offset);
    }
    uint64_t Size() const override { return m_base->Size(); }
    uint32_t LastError() const override { return 5; }
    long long CopyTo(platform::NativeHandle to, uint64_t toOffset, size_t len, uint64_t offset, int& err) override {
        if (!m_canCopy) return ByteSource::CopyTo(to, toOffset, len, offset, err);
        if (Fails(offset, len)) {
            err = EIO;
            return -1;
        }
        long long n = m_base->CopyTo(to, toOffset, len, offset, err);
        if (n > 0) copied += uint64_t(n);
        return n;
    }
    uint64_t copied = 0;

private:
    bool Fails(uint64_t offset, size_t len) const { return offset < m_to && m_from < offset + len; }
    std::unique_ptr<ByteSource> m_base;
    bool m_canCopy;
    uint64_t m_from, m_to;
};

// Files of the NTFS, FAT and exFAT engines take the same path: every file with content, saved
// into a folder, holds what reading it gives and counts the same unreadable bytes, whether the
// kernel copies its runs, cannot copy them, or fails on some of them (those are then read, and
// what cannot be read is counted as always).
TEST(CopyRun, FileSystemItemsSaveWhatReadingGives) {
    for (const char* name : {"ntfs-features", "fat32-features", "exfat-features"}) {
        SCOPED_TRACE(name);
        const std::string img = UnpackImage(name);
        ASSERT_FALSE(img.empty());
        OpenedSource src;
        std::string error;
        ASSERT_TRUE(OpenSource(img, src, error)) << error;
        QuietScanEvents events;
        CScanDriver driver(*src.media, MakeEngines(), events);
        ASSERT_EQ(driver.StartForSource(RecoveryMode::DeletedFiles), OperationKind::FileSystemScan);
        std::unique_ptr<CNode> tree = driver.ReleaseTree();
        std::vector<const CNode*> files;
        ForEachNode(tree.get(), [&](CNode* n) {
            if (!n->IsFolder() && !n->carved && n->size > 0 && VolumeOf(*n)) files.push_back(n);
        });
        ASSERT_GE(files.size(), 3u);
        // The largest ones: they hold the long runs, and a few hundred files keep the test short.
        std::sort(files.begin(), files.end(), [](const CNode* a, const CNode* b) { return a->size > b->size; });
        files.resize(std::min<size_t>(files.size(), 200));
        // A stretch of the largest file fails to read: its first run, where the engine first
        // offers a copy, from its second sector on.
        const CNode* largest = files.front();
        uint64_t failAt = UINT64_MAX;
        ContentSink probe([](const uint8_t*, size_t) { return true; }, [&](ByteSource&, uint64_t offset, size_t) {
            failAt = std::min(failAt, offset);
            return ContentSink::Copy::NotDone;
        });
        WriteNodeContent(*src.media, *largest, probe);
        ASSERT_NE(failAt, UINT64_MAX) << "no run of the largest file was offered for copying";

        std::unique_ptr<ByteSource> image = src.media->ReleaseHandle();
        ByteSource& bytes = *image;
        struct Case {
            bool canCopy;
            uint64_t failFrom, failTo;
        };
        for (Case c : {Case{true, 0, 0}, Case{false, 0, 0}, Case{true, failAt + 512, failAt + 1024}}) {
            SCOPED_TRACE(testing::Message() << "copy " << c.canCopy << " fail " << c.failFrom);
            struct Borrowed final : ByteSource {
                ByteSource& base;
                explicit Borrowed(ByteSource& b) : base(b) {}
                long long ReadAt(void* buf, size_t len, uint64_t offset) override { return base.ReadAt(buf, len, offset); }
                uint64_t Size() const override { return base.Size(); }
                long long CopyTo(platform::NativeHandle to, uint64_t t, size_t len, uint64_t o, int& err) override {
                    return base.CopyTo(to, t, len, o, err);
                }
            };
            auto counting = std::make_unique<CountingSource>(std::make_unique<Borrowed>(bytes), c.canCopy, c.failFrom, c.failTo);
            CountingSource& source = *counting;
            src.media->Attach(std::move(counting));
            char dir[] = "/tmp/kestrin-fscopy-XXXXXX";
            ASSERT_NE(::mkdtemp(dir), nullptr);
            auto target = MakeFolderTarget(dir, nullptr);
            ASSERT_EQ(target->Open(), 0u);
            uint64_t unreadableTotal = 0;
            for (size_t i = 0; i < files.size(); ++i) {
                const CNode& n = *files[i];
                // What reading alone gives (a sink that takes bytes only).
                std::vector<uint8_t> expected;
                ContentResult read = WriteNodeContent(*src.media, n, [&](const uint8_t* p, size_t len) {
                    expected.insert(expected.end(), p, p + len);
                    return true;
                });
                const std::u16string fileName = ToUtf16(std::string("f").append(std::to_string(i)));
                ASSERT_EQ(target->CreateFile(fileName), 0u);
                FileOutcome saved = target->WriteFile(*src.media, n, &WriteNodeContent, [](uint64_t) { return true; });
                EXPECT_EQ(ReadAll(std::string(dir) + "/" + ToUtf8(fileName)), expected) << ToUtf8(n.name.view());
                EXPECT_EQ(saved.unreadable, read.unreadable + read.beyondVolume) << ToUtf8(n.name.view());
                EXPECT_EQ(saved.complete, read.ok) << ToUtf8(n.name.view());
                unreadableTotal += saved.unreadable;
            }
            SaveResult done;
            target->Finish(done);
            // (With the failing stretch the one long run may be the only one there is.)
            if (c.failTo == 0) {
                EXPECT_EQ(source.copied > 0, c.canCopy);
            }
            EXPECT_EQ(unreadableTotal > 0, c.failTo > 0);
            std::string cmd = std::string("rm -rf '") + dir + "'";
            EXPECT_EQ(std::system(cmd.c_str()), 0);
        }
        src.media->Attach(nullptr);
    }
}

} // namespace
} // namespace kestrin::test
