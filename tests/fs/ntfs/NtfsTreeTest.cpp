// Folder rebuilding: placement by record number, placeholders, "Lost", loops, index order.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "NtfsTestSupport.h"
#include "fs/DirectoryIndex.h"
#include "fs/ntfs/CNtfsTreeBuilder.h"

using namespace kestrin;
using namespace kestrin::test;

namespace {

ScanEntry* Item(uint32_t id, uint32_t parent, std::u16string name, bool folder, uint64_t size = 10, bool inUse = true) {
    ScanEntry* e = NewScanEntry(std::move(name), uint8_t((folder ? kNodeFolder : 0) | (inUse ? kNodeInUse : 0)), id, parent);
    e->size = folder ? 0 : size;
    return e;
}

std::vector<std::string> Paths(CNode* vol) {
    std::vector<std::string> out;
    for (auto& l : ListTree(vol)) out.push_back(l.path);
    std::sort(out.begin(), out.end());
    return out;
}

} // namespace

TEST(NtfsTree, FoldersArrivingLateMissingOrLooping) {
    ScanHarness h;
    CNtfsTreeBuilder b;
    b.AddRecord(Item(100, 64, u"early.txt", false));          // before its folder
    b.AddRecord(Item(64, 5, u"Docs", true));                   // takes over its placeholder
    b.AddRecord(Item(101, 70, u"a.txt", false));               // folder never seen
    b.AddRecord(Item(102, 70, u"b.txt", false));               // shares the placeholder
    b.AddRecord(Item(103, 64, u"empty.txt", false, 0));        // empty files are listed
    b.AddRecord(Item(104, 5, u"", false));                     // no usable name
    b.AddRecord(Item(81, 82, u"ping", true, 0, false));        // two folders naming each other
    b.AddRecord(Item(82, 81, u"pong", true, 0, false));
    b.AddRecord(Item(83, 83, u"self", true));                  // its own parent
    b.AddIndexFolder({120, 5, 0, 0, u"FromIndex"});            // a folder only an index names
    b.AddRecord(Item(121, 122, u"c.txt", false));
    b.AddIndexFolder({122, 120, 0, 0, u"Inner"});              // names a placeholder
    b.AddIndexFolder({123, 123, 0, 0, u"selfidx"});            // dropped
    ASSERT_NE(b.Finish(h.top.get()), nullptr);
    CNode* vol = h.Volume();
    ASSERT_NE(vol, nullptr);
    EXPECT_EQ(vol->recordId, 5u);
    EXPECT_EQ(vol->parentRecordId, 5u);

    std::vector<std::string> expected = {
        "/#104", "/Docs", "/Docs/early.txt", "/Docs/empty.txt", "/FromIndex", "/FromIndex/Inner", "/FromIndex/Inner/c.txt", "/Lost",
        "/Lost/#70", "/Lost/#70/a.txt", "/Lost/#70/b.txt", "/Lost/pong", "/Lost/pong/ping", "/Lost/self",
    };
    EXPECT_EQ(Paths(vol), expected);
    // "Lost" stays first under the root; the merged folder kept its record's name and flags.
    EXPECT_EQ(vol->firstChild->name, u"Lost");
    CNode* docs = FindPath(vol, "/Docs");
    EXPECT_EQ(docs->flags, 3);
    EXPECT_EQ(docs->parentRecordId, 5u);
    CNode* holder = FindPath(vol, "/Lost/#70");
    EXPECT_EQ(holder->flags, 2);
    EXPECT_EQ(holder->nameLength, 3);
    EXPECT_EQ(holder->parentRecordId, 0u); // Lost's record number once placed
}

TEST(NtfsTree, OrphansGoToLostInAscendingRecordOrder) {
    ScanEntry* root = MakeVolumeRoot(5);
    {
        CDirectoryIndex index(root);
        std::mt19937 rng(7);
        std::vector<uint32_t> ids;
        for (uint32_t i = 0; i < 3000; ++i) ids.push_back(1000 + i * 7);
        std::shuffle(ids.begin(), ids.end(), rng);
        for (uint32_t id : ids) {
            ScanEntry* f = Item(id, kUnknownParent, RecordName(id), true);
            ASSERT_EQ(index.FindOrAdd(f), f);
        }
        for (uint32_t id : ids) ASSERT_NE(index.Find(id), nullptr);
        EXPECT_EQ(index.Find(1001), nullptr);
        ScanEntry* dup = Item(ids[0], kUnknownParent, u"dup", true);
        EXPECT_NE(index.FindOrAdd(dup), dup);
        delete dup;
        index.PlaceOrphans();
        EXPECT_EQ(index.Size(), 0u);
    }
    // Each orphan was put in front of the ones before it: the highest number comes first.
    ScanEntry* lost = LostFolderOf(root);
    uint32_t expectId = 1000 + 2999 * 7, expectNo = 2999;
    for (ScanEntry* c = lost->firstChild; c; c = c->nextSibling, expectId -= 7, --expectNo) {
        ASSERT_EQ(c->recordId, expectId);
        EXPECT_EQ(c->reserved, expectNo);
        EXPECT_EQ(c->parent, lost);
    }
    FreeScanEntries(root);
}

TEST(NtfsTree, ReusedFolderRecordsDoNotAdoptOldChildren) {
    // Sequence numbers: own in the low half of `reserved`, the parent reference's in the high.
    auto seq = [](ScanEntry* e, uint16_t own, uint16_t parent) {
        e->reserved = own | uint32_t(parent) << 16;
        return e;
    };
    ScanHarness h;
    CNtfsTreeBuilder b;
    b.AddRecord(seq(Item(100, 64, u"old.txt", false, 10, false), 1, 2));  // named folder 64 when it had sequence 2
    b.AddRecord(seq(Item(101, 64, u"new.txt", false), 1, 3));
    b.AddRecord(seq(Item(64, 5, u"New folder", true), 3, 5));             // record 64 reused (sequence 3)
    b.AddRecord(seq(Item(102, 64, u"late.txt", false, 10, false), 1, 2)); // arrives after the reuse
    b.AddRecord(seq(Item(65, 5, u"Deleted", true, 0, false), 8, 5));      // freed: sequence raised to 8
    b.AddRecord(seq(Item(103, 65, u"inside.txt", false, 10, false), 1, 7));
    b.Finish(h.top.get());
    std::vector<std::string> expected = {"/Deleted", "/Deleted/inside.txt", "/Lost", "/Lost/#64", "/Lost/#64/late.txt",
                                         "/Lost/#64/old.txt", "/New folder", "/New folder/new.txt"};
    EXPECT_EQ(Paths(h.Volume()), expected);
}
