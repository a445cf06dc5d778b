// The FAT folder walk and content read-back on volumes built byte by byte: names, flags, the
// "." and ".." checks, the walk modes, and hostile chains and folders.
#include <gtest/gtest.h>

#include "fs/fat/FatBuilder.h"
#include "fs/fat/FatEngine.h"
#include "fs/fat/VolumeImageCheck.h"

namespace kestrin::test {
namespace {

using Names = std::vector<std::string>;

Outcome WalkWithMode(CPhysicalDisk& media, int mode, ScanContext& ctx) { return FatWalkVolume(media, FatWalkMode(mode), ctx); }

std::string Content(ScannedVolume& v, const std::string& path, ContentResult* r = nullptr) {
    auto found = Flatten(v.root);
    return found.count(path) ? ReadContent(FatWriteContent, v.media, *found[path], r) : "<missing>";
}

TEST(FatWalk, NamesFlagsAndSkippedEntries) {
    for (FsKind kind : {FsKind::Fat16, FsKind::Fat32}) {
        FatBuilder b(kind);
        uint8_t* e = kind == FsKind::Fat16 ? b.RootRegion() : b.Cluster(2);
        FatBuilder::Short(e, "LABEL      ", 0x08, 0); // a volume label first: skipped
        FatBuilder::Short(e += 32, "\xE5OOK    TXT", 0x20, 10, 5); // deleted, no long name
        // A blank on a piece boundary inside the name stays.
        e += 32 * (1 + FatBuilder::Long(e + 32, u"Video of the site visit.avi", "VIDEOO~1AVI", 11, 6));
        e += 32 * FatBuilder::Long(e, u"Deleted long name.txt", "DELETE~1TXT", 12, 7, true);
        FatBuilder::Short(e, "LOWER   TXT", 0x20, 13, 8, 0, 0, 0x18); // case byte: lower case
        FatBuilder::Short(e += 32, "EMPTY   TXT", 0x20, 0, 5);           // no cluster: empty
        FatBuilder::Short(e += 32, "FAR     TXT", 0x20, 60000, 1);       // beyond the volume
        FatBuilder::Short(e += 32, "ODDCASE TXT", 0x20, 14, 1, 0, 0, 0x04); // unknown case bits
        FatBuilder::Short(e += 32, "\x05" "ATE    TXT", 0x20, 15, 1);    // 0x05 stands for 0xE5
        FatBuilder::Short(e += 32, "DATES   TXT", 0x20, 16, 1, 0x5678, 0x1234);
        FatBuilder::Short(e += 32, "STOP    TXT", 0x18, 17, 1); // impossible attributes end the folder
        FatBuilder::Short(e += 32, "AFTER   TXT", 0x20, 18, 1);
        auto v = ScanMemory(b.img, kind, FatScanVolume);
        auto found = Flatten(v->root);
        EXPECT_EQ(Paths(v->root), (Names{"DATES.TXT", "Deleted long name.txt", "EMPTY.TXT", "Video of the site visit.avi",
                                         "XOOK.TXT", "lower.txt", "\xcf\x83" "ATE.TXT"}));
        EXPECT_EQ(found["EMPTY.TXT"]->size, 0u); // the size field of a file without data is not believed
        EXPECT_EQ(found["XOOK.TXT"]->flags, 0);
        EXPECT_EQ(found["Deleted long name.txt"]->flags, 0);
        EXPECT_EQ(found["lower.txt"]->flags, kNodeInUse);
        EXPECT_EQ(found["lower.txt"]->size, 8u);
        const CNode* dates = found["DATES.TXT"];
        EXPECT_EQ(dates->createdDate, 0x5678);
        EXPECT_EQ(dates->modifiedDate, 0x1234); // the last-access date, on purpose
        EXPECT_EQ(dates->recordId, 16u);
        EXPECT_EQ(dates->parentRecordId, kind == FsKind::Fat16 ? 1u : 2u);
        // Entries are prepended as they are read, yet "Lost" leads the volume root.
        EXPECT_EQ(v->root->firstChild->name, u"Lost");
    }
}

TEST(FatWalk, FolderChecksInheritanceAndModes) {
    FatBuilder b(FsKind::Fat32);
    uint8_t* root = b.Cluster(2);
    FatBuilder::Short(root, "GOOD       ", 0x10, 20, 0, 0x4A21);
    FatBuilder::Short(root + 32, "\xE5LD        ", 0x10, 21, 0, 0x4A22);
    FatBuilder::Short(root + 64, "WRONGUP    ", 0x10, 22, 0, 0x4A23);
    FatBuilder::Short(root + 96, "NODOTS     ", 0x10, 23);
    for (uint32_t c : {20, 21, 22, 23, 30, 31}) b.Chain({c});
    FatBuilder::Dots(b.Cluster(20), 20, 0, 0x4A21);
    FatBuilder::Short(b.Cluster(20) + 64, "A       TXT", 0x20, 30, 3);
    FatBuilder::Short(b.Cluster(20) + 96, "SELF       ", 0x10, 20);           // its own cluster
    FatBuilder::Short(b.Cluster(20) + 128, "UP         ", 0x10, 20, 0, 0x4A21); // ...again, deeper
    FatBuilder::Dots(b.Cluster(21), 21, 0, 0x4A22);
    FatBuilder::Short(b.Cluster(21) + 64, "INSIDE  TXT", 0x20, 31, 3); // not marked, in a deleted folder
    FatBuilder::Dots(b.Cluster(22), 22, 99, 0x4A23);                     // ".." names another parent
    FatBuilder::Short(b.Cluster(22) + 64, "HIDDEN  TXT", 0x20, 32, 3);
    FatBuilder::Short(b.Cluster(23) + 64, "HIDDEN  TXT", 0x20, 33, 3);
    auto full = ScanMemory(b.img, FsKind::Fat32, FatScanVolume);
    EXPECT_EQ(Paths(full->root), (Names{"GOOD", "GOOD/A.TXT", "NODOTS", "WRONGUP", "XLD", "XLD/INSIDE.TXT"}));
    EXPECT_EQ(Flatten(full->root)["XLD/INSIDE.TXT"]->flags, 0);
    // The bare walk takes "." and ".." as they are; a sub-folder must still start with them.
    auto bare = ScanMemory(b.img, FsKind::Fat32, FatScanVolume, kFatWalkBare);
    EXPECT_EQ(Paths(bare->root), (Names{"GOOD", "GOOD/A.TXT", "NODOTS", "WRONGUP", "WRONGUP/HIDDEN.TXT", "XLD",
                                        "XLD/INSIDE.TXT"}));
    // Mode 1: files in use dropped; a deleted folder seen twice is one entry, with the newer name.
    FatBuilder m(FsKind::Fat32);
    FatBuilder::Short(m.Cluster(2), "LIVE    TXT", 0x20, 40, 1);
    FatBuilder::Short(m.Cluster(2) + 32, "\xE5ONE    TXT", 0x20, 41, 1);
    FatBuilder::Short(m.Cluster(2) + 64, "\xE5IR1       ", 0x10, 42, 0, 0x4000);
    FatBuilder::Short(m.Cluster(2) + 96, "\xE5IR2       ", 0x10, 42, 0, 0x4100);
    auto merged = ScanMemory(m.img, FsKind::Fat32, WalkWithMode, kFatWalkDeletedOnly);
    EXPECT_EQ(Paths(merged->root), (Names{"XIR2", "XONE.TXT"}));
}

TEST(FatWalk, HostileChainsEnd) {
    using V = std::vector<uint32_t>;
    auto chainOf = [](std::initializer_list<std::pair<uint32_t, uint32_t>> links, uint32_t first) {
        FatBuilder b(FsKind::Fat32);
        for (auto [from, to] : links) b.SetFat(from, to);
        CPhysicalDisk media;
        media.Attach(std::make_unique<MemorySource>(b.img));
        media.SetSectorSize(512);
        CFatVolume vol(media);
        EXPECT_TRUE(vol.Open(FsKind::Fat32));
        return vol.FollowChain(first, 1000000);
    };
    EXPECT_EQ(chainOf({{10, 10}}, 10), V({10}));                               // points to itself
    EXPECT_EQ(chainOf({{10, 11}, {11, 10}}, 10), V({10, 11}));                 // A→B→A
    EXPECT_EQ(chainOf({{10, 11}, {11, 12}, {12, 11}}, 10), V({10, 11, 12}));   // A→B→C→B
    EXPECT_EQ(chainOf({{10, 11}, {11, 50000}}, 10), V({10, 11}));              // leaves the volume
    EXPECT_EQ(chainOf({{10, 11}, {11, 0x0FFFFFF7}}, 10), V({10, 11}));         // bad-cluster mark
    EXPECT_EQ(chainOf({{10, 0x1000000B}, {11, 0x0FFFFFFF}}, 10), V({10, 11})); // reserved top bits
    EXPECT_EQ(chainOf({{3, 4}, {4, 5}, {5, 6}, {6, 7}, {7, 3}}, 5), V({5, 6, 7, 3, 4}));
    EXPECT_EQ(chainOf({}, 1), V({})); // the FAT16 root region has no chain

    // A folder whose chain loops lists its entries once.
    FatBuilder f(FsKind::Fat32);
    FatBuilder::Short(f.Cluster(2), "DIR        ", 0x10, 50);
    f.SetFat(50, 51), f.SetFat(51, 50);
    FatBuilder::Dots(f.Cluster(50), 50, 0);
    for (int i = 2; i < 16; ++i) FatBuilder::Short(f.Cluster(50) + 32 * i, "\xE5UNUSED    ", 0x20, 60000); // beyond the volume: not listed
    FatBuilder::Short(f.Cluster(51), "TWO     TXT", 0x20, 61, 1);
    EXPECT_EQ(Paths(ScanMemory(f.img, FsKind::Fat32, FatScanVolume)->root), (Names{"DIR", "DIR/TWO.TXT"}));
}

// A long name whose pieces start in one of the last slots of a folder cluster and end in the
// next cluster of its chain (elsewhere on the volume): the FAT32 root and sub-folders of both
// kinds, at every boundary position.
TEST(FatWalk, LongNamesCrossClusterBoundaries) {
    const std::u16string name = u"A long name that takes four pieces to hold"; // 42 units: 4 pieces, then the short entry
    constexpr size_t kSlots = 512 / 32, kSetEntries = 5;
    struct Folder {
        FsKind kind;
        bool root;
    } folders[] = {{FsKind::Fat32, true}, {FsKind::Fat32, false}, {FsKind::Fat16, false}};
    for (const Folder& f : folders) {
        for (size_t slot = kSlots - kSetEntries; slot < kSlots; ++slot) {
            SCOPED_TRACE(std::string(f.kind == FsKind::Fat16 ? "FAT16" : "FAT32") + (f.root ? " root" : " folder") +
                         ", set at slot " + std::to_string(slot));
            FatBuilder b(f.kind);
            const uint32_t first = f.root ? 2 : 20, next = first + 7;
            b.Chain({first, next});
            size_t from = 0;
            if (!f.root) {
                FatBuilder::Short(f.kind == FsKind::Fat16 ? b.RootRegion() : b.Cluster(2), "DIR        ", 0x10, first);
                FatBuilder::Dots(b.Cluster(first), first, 0);
                from = 2;
            }
            for (size_t i = from; i < slot; ++i) FatBuilder::Short(b.Cluster(first) + 32 * i, "\xE5UNUSED    ", 0x20, 60000); // beyond the volume: not listed
            uint8_t set[kSetEntries * 32] = {};
            ASSERT_EQ(FatBuilder::Long(set, name, "ALONGN~1TXT", 40, 1), kSetEntries);
            const size_t inFirst = kSlots - slot;
            std::memcpy(b.Cluster(first) + 32 * slot, set, 32 * inFirst);
            std::memcpy(b.Cluster(next), set + 32 * inFirst, sizeof set - 32 * inFirst);
            uint8_t* after = b.Cluster(next) + sizeof set - 32 * inFirst;
            FatBuilder::Short(after, "AFTER   TXT", 0x20, 41, 1);
            const std::string prefix = f.root ? "" : "DIR/";
            Names want{prefix + "A long name that takes four pieces to hold", prefix + "AFTER.TXT"};
            if (!f.root) want.insert(want.begin(), "DIR");
            EXPECT_EQ(Paths(ScanMemory(b.img, f.kind, FatScanVolume)->root), want);
        }
    }
}

// Read-only, hidden, system and archive go with the folder bit on real entries (0x31-0x37 among
// them); only values no entry holds (reserved bits, label and folder together) end the folder.
TEST(FatWalk, OnlyImpossibleAttributesEndTheFolder) {
    for (uint8_t attr : {0x11, 0x16, 0x31, 0x32, 0x34, 0x37}) {
        SCOPED_TRACE(int(attr));
        FatBuilder b(FsKind::Fat32);
        FatBuilder::Short(b.Cluster(2), "ODD        ", attr, 20);
        FatBuilder::Short(b.Cluster(2) + 32, "NEXT    TXT", 0x20, 21, 1);
        b.Chain({20});
        FatBuilder::Dots(b.Cluster(20), 20, 0);
        FatBuilder::Short(b.Cluster(20) + 64, "INSIDE  TXT", 0x20, 22, 1);
        auto v = ScanMemory(b.img, FsKind::Fat32, FatScanVolume);
        EXPECT_EQ(Paths(v->root), (Names{"NEXT.TXT", "ODD", "ODD/INSIDE.TXT"}));
        EXPECT_EQ(Flatten(v->root)["ODD"]->flags, kNodeInUse | kNodeFolder);
    }
    for (uint8_t attr : {0x18, 0x1A, 0x38, 0x3F, 0x40, 0x80, 0xF0}) {
        SCOPED_TRACE(int(attr));
        FatBuilder b(FsKind::Fat32);
        FatBuilder::Short(b.Cluster(2), "FIRST   TXT", 0x20, 20, 1);
        FatBuilder::Short(b.Cluster(2) + 32, "ODD        ", attr, 21);
        FatBuilder::Short(b.Cluster(2) + 64, "NEXT    TXT", 0x20, 22, 1);
        EXPECT_EQ(Paths(ScanMemory(b.img, FsKind::Fat32, FatScanVolume)->root), Names{"FIRST.TXT"});
    }
}

// The FAT16 data area starts 32 sectors after the root region whatever the boot sector says.
// The data area starts after the root entries the boot sector declares (224: 14 sectors).
TEST(FatWalk, Fat16RootRegionFollowsItsEntryCount) {
    FatBuilder b(FsKind::Fat16, 224);
    FatBuilder::Short(b.RootRegion(), "DATA    BIN", 0x20, 5, 512);
    b.Chain({5});
    std::memset(b.Cluster(5), 'd', 512);
    EXPECT_EQ(Content(*ScanMemory(b.img, FsKind::Fat16, FatScanVolume), "DATA.BIN"), std::string(512, 'd'));
}

// Deleted files come back from their first cluster over the clusters free now; unreadable data
// as counted zeros; an unreadable FAT ends every chain at its first cluster.
TEST(FatContent, DeletedFilesAndReadErrors) {
    FatBuilder b(FsKind::Fat32);
    uint8_t* root = b.Cluster(2);
    auto fill = [&](uint32_t c, char ch) { std::memset(b.Cluster(c), ch, 512); };
    FatBuilder::Short(root, "FRAG    BIN", 0x20, 10, 1300); // in use: 10, 12, 11
    b.Chain({10, 12, 11});
    fill(10, 'a'), fill(12, 'b'), fill(11, 'c');
    // Deleted, written around a file that still exists (21, 23): comes back as 20, 22, 24.
    FatBuilder::Short(root + 32, "\xE5ROUND  BIN", 0x20, 20, 1200);
    FatBuilder::Short(root + 64, "KEPT    BIN", 0x20, 21, 1024);
    b.Chain({21, 23});
    fill(20, 'x'), fill(22, 'y'), fill(24, 'z'), fill(21, 'k'), fill(23, 'k');
    ContentResult r;
    EXPECT_EQ(Content(*ScanMemory(b.img, FsKind::Fat32, FatScanVolume), "XROUND.BIN", &r),
              std::string(512, 'x') + std::string(512, 'y') + std::string(176, 'z'));
    EXPECT_TRUE(r.ok);
    auto bad = ScanMemory(b.img, FsKind::Fat32, FatScanVolume, 1, nullptr, b.ClusterOffset(12), 512);
    EXPECT_EQ(Content(*bad, "FRAG.BIN", &r), std::string(512, 'a') + std::string(512, '\0') + std::string(276, 'c'));
    EXPECT_EQ(r.unreadable, 512u);
    auto noFat = ScanMemory(b.img, FsKind::Fat32, FatScanVolume, 1, nullptr, b.FatOffset(0), 8 * 512);
    EXPECT_EQ(Content(*noFat, "FRAG.BIN", &r).size(), 512u);
    EXPECT_FALSE(r.ok);
}

// Mode 0 rebuilds folders known only by their clusters (after a format).
Outcome RebuildFromClusters(CPhysicalDisk& media, int, ScanContext& ctx) {
    static const uint32_t kFound[] = {51, 52, 50, 60, 51};
    return FatRebuildFolders(media, kFound, ctx);
}

TEST(FatWalk, BareWalkRebuildsFoldersFromClusters) {
    FatBuilder b(FsKind::Fat32);
    b.Chain({50}), b.Chain({51}), b.Chain({52});
    FatBuilder::Dots(b.Cluster(50), 50, 0, 0x4A00);
    FatBuilder::Short(b.Cluster(50) + 64, "SUB        ", 0x10, 51, 0, 0x1234);
    FatBuilder::Dots(b.Cluster(51), 51, 50, 0x4A01);
    FatBuilder::Short(b.Cluster(51) + 64, "DEEP    TXT", 0x20, 70, 1);
    FatBuilder::Dots(b.Cluster(52), 52, 77); // its parent was not found: under "Lost"
    FatBuilder::Short(b.Cluster(52) + 64, "ORPHAN  TXT", 0x20, 71, 1);
    auto v = ScanMemory(b.img, FsKind::Fat32, RebuildFromClusters);
    EXPECT_EQ(Paths(v->root), (Names{"#50", "#50/SUB", "#50/SUB/DEEP.TXT"}));
    CNode* lost = FindChild(v->root, u"Lost");
    ASSERT_TRUE(lost);
    EXPECT_EQ(Paths(lost), (Names{"#77", "#77/#52", "#77/#52/ORPHAN.TXT"}));
}

} // namespace
} // namespace kestrin::test
