// The exFAT folder walk and content read-back on volumes built byte by byte: entry sets, the
// drop rules, folders read by chain or contiguously, how the walk ends, and hostile input.
#include <gtest/gtest.h>

#include "fs/exfat/ExFatBuilder.h"
#include "fs/exfat/ExFatEngine.h"
#include "fs/fat/VolumeImageCheck.h"

namespace kestrin::test {
namespace {

using Names = std::vector<std::string>;
constexpr uint16_t kFile = 0x20, kDir = 0x10;
constexpr size_t kCB = ExFatBuilder::kClusterBytes;

TEST(ExFatWalk, EntrySetsFlagsAndDropRules) {
    ExFatBuilder b;
    uint8_t* e = b.Cluster(ExFatBuilder::kRoot) + 96;
    e += 32 * ExFatBuilder::Set(e, true, kFile, u"Twenty char name.txt", 20, 700, false, 0x5A210000, 0x5A220000);
    e += 32 * ExFatBuilder::Set(e, false, kFile, u"deleted notes.txt", 21, 10, false);
    e += 32 * ExFatBuilder::Set(e, true, kFile, u"low.txt", 3, 10, false); // not above the root cluster
    e += 32 * ExFatBuilder::Set(e, true, kFile, u"empty.txt", 0, 0, false);
    e += 32 * ExFatBuilder::Set(e, true, kFile, u"far.txt", 5000, 10, false); // beyond the volume
    e += 32 * ExFatBuilder::Set(e, false, kDir, u"Old", 30, kCB, false);
    e += 32 * ExFatBuilder::Set(e, true, kDir, u"Chained", 31, 2 * kCB, true);
    e += 32 * ExFatBuilder::Set(e, true, kFile, u"chain.bin", 22, 10, true);
    e += 32 * ExFatBuilder::Set(e, true, 0x31, u"stop", 23, 10, false); // impossible attributes end it
    ExFatBuilder::Set(e, true, kFile, u"after.txt", 24, 10, false);
    ExFatBuilder::Set(b.Cluster(30), true, kFile, u"inside.txt", 40, 5, false);
    b.Chain({31, 33});
    ExFatBuilder::Set(b.Cluster(31), true, kFile, u"first.txt", 41, 5, false);
    ExFatBuilder::Set(b.Cluster(31) + kCB - 64, true, kFile, u"split.txt", 42, 5, false); // runs into 33: lost
    ExFatBuilder::Set(b.Cluster(33) + 32, true, kFile, u"second.txt", 43, 5, false);
    ScanOperation op;
    op.state = OperationState::Running;
    auto v = ScanMemory(b.img, FsKind::ExFat, ExFatScanVolume, 1, &op);
    ASSERT_TRUE(v->root);
    EXPECT_EQ(v->root->recordId, ExFatBuilder::kRoot);
    EXPECT_EQ(v->outcome, Outcome::Ok);
    EXPECT_EQ(Paths(v->root), (Names{"Chained", "Chained/first.txt", "Chained/second.txt", "Old", "Old/inside.txt",
                                     "Twenty char name.txt", "chain.bin", "deleted notes.txt"}));
    auto found = Flatten(v->root);
    const CNode* twenty = found["Twenty char name.txt"];
    EXPECT_EQ(twenty->flags, kNodeInUse);
    EXPECT_EQ(twenty->nameLength, 20);
    EXPECT_EQ(twenty->createdDate, 0x5A21);
    EXPECT_EQ(twenty->modifiedDate, 0x5A22); // the last-access date, on purpose
    EXPECT_EQ(twenty->size, 700u);
    EXPECT_EQ(found["deleted notes.txt"]->flags, 0);
    EXPECT_EQ(found["chain.bin"]->flags, kNodeInUse | kNodeFatChain);
    EXPECT_EQ(found["Old"]->flags, kNodeFolder);
    EXPECT_EQ(found["Old/inside.txt"]->flags, 0); // inside a deleted folder
}

TEST(ExFatWalk, HostileSetsAndFolders) {
    ExFatBuilder b;
    uint8_t* e = b.Cluster(ExFatBuilder::kRoot) + 96;
    ExFatBuilder::Set(e, true, kFile, u"never", 20, 1, false);
    e[1] = 255; // a secondary count past the cluster never completes; the next set starts anew
    e += 32 * 3;
    size_t n = ExFatBuilder::Set(e, true, kFile, u"fifteen chars!!", 21, 1, false);
    e[35] = 200; // a name length beyond its name entries: the name is what is there
    e += 32 * n;
    // A folder whose chain loops, holding itself, the root, and a folder pointing back up.
    e += 32 * ExFatBuilder::Set(e, true, kDir, u"loop", 30, kCB, true);
    b.SetFat(30, 31), b.SetFat(31, 30);
    ExFatBuilder::Set(b.Cluster(30), true, kDir, u"self", 30, kCB, true);
    ExFatBuilder::Set(b.Cluster(30) + 128, true, kDir, u"root", ExFatBuilder::kRoot, kCB, true);
    ExFatBuilder::Set(b.Cluster(31), true, kDir, u"inner", 32, kCB, false);
    ExFatBuilder::Set(b.Cluster(32), true, kDir, u"back", 30, kCB, true);
    ExFatBuilder::Set(e, true, kDir, u"huge", 100, ~0ull, false); // bounded by the volume
    auto v = ScanMemory(b.img, FsKind::ExFat, ExFatScanVolume);
    EXPECT_EQ(Paths(v->root), (Names{"fifteen chars!!", "huge", "loop", "loop/inner", "loop/inner/back"}));
    EXPECT_EQ(Flatten(v->root)["fifteen chars!!"]->nameLength, 15);
}

TEST(ExFatWalk, StopBeforeAFolderEndsTheWalk) {
    ExFatBuilder b;
    ExFatBuilder::Set(b.Cluster(ExFatBuilder::kRoot) + 96, true, kFile, u"a.txt", 20, 1, false);
    ScanOperation op;
    op.state = OperationState::Cancel;
    auto v = ScanMemory(b.img, FsKind::ExFat, ExFatScanVolume, 1, &op);
    EXPECT_EQ(v->outcome, Outcome::Stopped);
    EXPECT_EQ(op.state.load(), OperationState::Cancel); // the engine leaves the state to the driver
    ASSERT_TRUE(v->root);
    EXPECT_EQ(Paths(v->root), Names{});
}

// A source that goes away ends the walk at once, a plain read error only loses what it held, a
// stop ends the walk; what was read before stays listed.
TEST(ExFatWalk, EndsOnVanishedSourceReadErrorAndStop) {
    // Folders a, b and c (read in child order: c, b, a). b's chain is 21 then 23, two reads,
    // with its file in the second cluster.
    ExFatBuilder b;
    uint8_t* e = b.Cluster(ExFatBuilder::kRoot) + 96;
    e += 32 * ExFatBuilder::Set(e, true, kDir, u"a", 20, kCB, false);
    e += 32 * ExFatBuilder::Set(e, true, kDir, u"b", 21, 2 * kCB, true);
    ExFatBuilder::Set(e, true, kDir, u"c", 22, kCB, false);
    b.Chain({21, 23});
    ExFatBuilder::Set(b.Cluster(20), true, kFile, u"f.txt", 30, 1, false);
    ExFatBuilder::Set(b.Cluster(23), true, kFile, u"g.txt", 31, 1, false);
    ExFatBuilder::Set(b.Cluster(22), true, kFile, u"h.txt", 32, 1, false);
    const uint64_t folderB = b.ClusterOffset(21);
    struct Case {
        const char* what;
        Trouble trouble;
        Outcome outcome;
        Names paths;
    } cases[] = {
        {"gone at b", {folderB, folderB + kCB, true}, Outcome::DeviceGone, {"a", "b", "c", "c/h.txt"}},
        {"read error at b", {folderB, folderB + kCB}, Outcome::ReadFailed,
         {"a", "a/f.txt", "b", "b/g.txt", "c", "c/h.txt"}},
        // The stop comes with the first progress call, as c is reached: c is still read.
        {"stop", {0, 0, false, 1}, Outcome::Stopped, {"a", "b", "c", "c/h.txt"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ExpectWalkEnd(b.img, FsKind::ExFat, ExFatScanVolume, c.trouble, c.outcome, c.paths);
    }
}

// A deleted file comes back from its first cluster over the clusters the bitmap shows free.
TEST(ExFatContent, DeletedFileWrittenAroundOthers) {
    ExFatBuilder b;
    ExFatBuilder::Set(b.Cluster(ExFatBuilder::kRoot) + 96, false, kFile, u"around.bin", 40, 2 * kCB + 76, false);
    for (uint32_t c : {40, 41, 42, 43, 44}) std::memset(b.Cluster(c), c & 1 ? 'k' : 'a' + c - 40, kCB);
    b.MarkUsed(41), b.MarkUsed(43);
    auto v = ScanMemory(b.img, FsKind::ExFat, ExFatScanVolume);
    ContentResult r;
    EXPECT_EQ(ReadContent(ExFatWriteContent, v->media, *Flatten(v->root)["around.bin"], &r),
              std::string(kCB, 'a') + std::string(kCB, 'c') + std::string(76, 'e'));
    EXPECT_TRUE(r.ok);
}

} // namespace
} // namespace kestrin::test
