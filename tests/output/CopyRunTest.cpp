// Carved items saved from an image file into a folder: whole runs go from file to file, and the
// file, the bytes counted as unreadable and the progress are what reading and writing give.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "output/ContentCopy.h"
#include "output/OutputTarget.h"
#include "output/Saver.h"
#include "storage/CPhysicalDisk.h"

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

} // namespace
} // namespace kestrin::test
