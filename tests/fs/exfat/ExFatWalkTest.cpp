// The exFAT folder walk and content read-back on volumes built byte by byte: entry sets, the
// drop rules, folders read by chain or contiguously, how the walk ends, and hostile input.
#include <algorithm>
#include <cstring>

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
    e += 32 * ExFatBuilder::Set(e, true, 0x40, u"stop", 23, 10, false); // impossible attributes end it
    ExFatBuilder::Set(e, true, kFile, u"after.txt", 24, 10, false);
    ExFatBuilder::Set(b.Cluster(30), true, kFile, u"inside.txt", 40, 5, false);
    b.Chain({31, 33});
    ExFatBuilder::Set(b.Cluster(31), true, kFile, u"first.txt", 41, 5, false);
    // Runs on in the chain's next cluster, 33.
    uint8_t split[3 * 32] = {};
    ExFatBuilder::Set(split, true, kFile, u"split.txt", 42, 5, false);
    std::memcpy(b.Cluster(31) + kCB - 64, split, 64);
    std::memcpy(b.Cluster(33), split + 64, 32);
    ExFatBuilder::Set(b.Cluster(33) + 32, true, kFile, u"second.txt", 43, 5, false);
    ScanOperation op;
    op.state = OperationState::Running;
    auto v = ScanMemory(b.img, FsKind::ExFat, ExFatScanVolume, 1, &op);
    ASSERT_TRUE(v->root);
    EXPECT_EQ(v->root->recordId, ExFatBuilder::kRoot);
    EXPECT_EQ(v->outcome, Outcome::Ok);
    EXPECT_EQ(Paths(v->root), (Names{"Chained", "Chained/first.txt", "Chained/second.txt", "Chained/split.txt", "Old",
                                     "Old/inside.txt",
                                     "Twenty char name.txt", "chain.bin", "deleted notes.txt", "empty.txt"}));
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

// Writes the entries in `set` from slot `slot` of `first` on; what does not fit goes on at the
// start of `next`.
void PutAcross(ExFatBuilder& b, uint32_t first, uint32_t next, size_t slot, const std::vector<uint8_t>& set) {
    const size_t inFirst = std::min(set.size(), kCB - 32 * slot);
    std::memcpy(b.Cluster(first) + 32 * slot, set.data(), inFirst);
    std::memcpy(b.Cluster(next), set.data() + inFirst, set.size() - inFirst);
}

std::vector<uint8_t> SetBytes(const std::u16string& name, uint32_t cluster, uint16_t attr = kFile) {
    std::vector<uint8_t> set(32 * (2 + (name.size() + 14) / 15));
    ExFatBuilder::Set(set.data(), true, attr, name, cluster, 5, false);
    return set;
}

// Entry sets that start in one of the last slots of a folder cluster and end in the folder's next
// cluster, at every boundary position: the root and a folder whose next cluster is elsewhere in
// their FAT chains, and a folder that is one contiguous run. A set still open when its folder
// ends is dropped, and does not go on in the folder read next.
TEST(ExFatWalk, EntrySetsCrossClusterBoundaries) {
    const std::u16string name = u"A name of forty units, in three entries"; // a set of five entries
    constexpr size_t kSlots = kCB / 32, kSetEntries = 5;
    struct Folder {
        const char* what;
        uint32_t first, next;
        bool chained;
    } folders[] = {{"root", ExFatBuilder::kRoot, 9, true}, {"chained", 30, 35, true}, {"contiguous", 30, 31, false}};
    for (const Folder& f : folders) {
        for (size_t slot = kSlots - kSetEntries; slot < kSlots; ++slot) {
            SCOPED_TRACE(std::string(f.what) + ", set at slot " + std::to_string(slot));
            ExFatBuilder b;
            const bool root = f.first == ExFatBuilder::kRoot;
            if (f.chained) b.Chain({f.first, f.next});
            if (!root) {
                // The folder, and a sibling read right after it that starts with the rest of a set.
                uint8_t* e = b.Cluster(ExFatBuilder::kRoot) + 96;
                e += 32 * ExFatBuilder::Set(e, true, kDir, u"sibling", 40, kCB, false);
                ExFatBuilder::Set(e, true, kDir, u"dir", f.first, 2 * kCB, f.chained);
                uint8_t rest[4 * 32] = {};
                ExFatBuilder::Set(rest, true, kFile, u"not a set of its own", 51, 5, false);
                std::memcpy(b.Cluster(40), rest + 64, 64); // its two name entries
            }
            PutAcross(b, f.first, f.next, slot, SetBytes(name, 50));
            // Then one set after it, and one that the folder's end cuts.
            PutAcross(b, f.next, f.next, kSetEntries - (kSlots - slot), SetBytes(u"after.txt", 52));
            std::memcpy(b.Cluster(f.next) + kCB - 64, SetBytes(u"cut.txt", 53).data(), 64);
            const std::string prefix = root ? "" : "dir/";
            Names want{prefix + "A name of forty units, in three entries", prefix + "after.txt"};
            if (!root) want.insert(want.begin(), "dir"), want.push_back("sibling");
            EXPECT_EQ(Paths(ScanMemory(b.img, FsKind::ExFat, ExFatScanVolume)->root), want);
        }
    }
}

// Read-only, hidden, system and archive go with the folder bit on real entries (0x31-0x37 among
// them); only values no entry holds (bits past archive, label and folder together) end the folder.
TEST(ExFatWalk, OnlyImpossibleAttributesEndTheFolder) {
    for (uint16_t attr : {0x11, 0x16, 0x31, 0x32, 0x34, 0x37}) {
        SCOPED_TRACE(attr);
        ExFatBuilder b;
        uint8_t* e = b.Cluster(ExFatBuilder::kRoot) + 96;
        e += 32 * ExFatBuilder::Set(e, true, attr, u"odd", 20, kCB, false);
        ExFatBuilder::Set(e, true, kFile, u"next.txt", 21, 1, false);
        ExFatBuilder::Set(b.Cluster(20), true, kFile, u"inside.txt", 22, 1, false);
        auto v = ScanMemory(b.img, FsKind::ExFat, ExFatScanVolume);
        EXPECT_EQ(Paths(v->root), (Names{"next.txt", "odd", "odd/inside.txt"}));
        EXPECT_EQ(Flatten(v->root)["odd"]->flags, kNodeInUse | kNodeFolder);
    }
    for (uint16_t attr : {0x18, 0x1A, 0x38, 0x40, 0x80, 0x100, 0x8000}) {
        SCOPED_TRACE(attr);
        ExFatBuilder b;
        uint8_t* e = b.Cluster(ExFatBuilder::kRoot) + 96;
        e += 32 * ExFatBuilder::Set(e, true, kFile, u"first.txt", 20, 1, false);
        e += 32 * ExFatBuilder::Set(e, true, attr, u"odd", 21, 1, false);
        ExFatBuilder::Set(e, true, kFile, u"next.txt", 22, 1, false);
        EXPECT_EQ(Paths(ScanMemory(b.img, FsKind::ExFat, ExFatScanVolume)->root), Names{"first.txt"});
    }
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
