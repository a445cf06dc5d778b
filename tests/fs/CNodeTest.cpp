#include <gtest/gtest.h>

#include <memory>

#include "fs/CNode.h"

using namespace kestrin;

namespace {
ScanEntry* Entry(const char16_t* name, uint8_t flags, uint32_t rec) {
    auto* e = new ScanEntry;
    e->name = name;
    e->nameLength = uint8_t(e->name.size());
    e->flags = flags;
    e->recordId = rec;
    return e;
}
std::u16string Names(const CNode* folder) {
    std::u16string s;
    for (auto* c = folder->firstChild; c; c = c->nextSibling) s += c->name + u",";
    return s;
}
} // namespace

TEST(CNode, ConvertKeepsOrderAndAddFolderPrepends) {
    ScanEntry* head = nullptr;
    ScanEntry** link = &head;
    for (auto* n : {u"a", u"b", u"c", u"d", u"e"}) {
        *link = Entry(n, 1, 7);
        link = &(*link)->nextSibling;
    }
    head->firstChild = Entry(u"child", 0, 9);
    auto top = std::make_unique<CNode>();
    EXPECT_TRUE(ConvertScanEntries(&head, top.get()));
    EXPECT_EQ(head, nullptr);
    EXPECT_EQ(Names(top.get()), u"a,b,c,d,e,");
    ASSERT_NE(top->firstChild->firstChild, nullptr);
    EXPECT_EQ(top->firstChild->firstChild->parent, top->firstChild);
    EXPECT_EQ(top->firstChild->firstChild->recordId, 9u);

    auto groups = std::make_unique<CNode>();
    for (auto* n : {u"1", u"2", u"3", u"4", u"5"}) AddFolder(groups.get(), n);
    EXPECT_EQ(Names(groups.get()), u"5,4,3,2,1,");
    EXPECT_EQ(groups->firstChild->nameLength, kGroupingNameLength);
    EXPECT_EQ(groups->firstChild->flags, 3);
    EXPECT_EQ(FindChild(groups.get(), u"3")->name, u"3");
    EXPECT_EQ(FindChild(groups.get(), u"X"), nullptr);
}

TEST(CNode, DeletedViewMarksAncestorsOfDeepDeletedFile) {
    CNode top;
    top.flags = 3;
    auto* a = AddFolder(&top, u"a");
    auto* b = AddFolder(a, u"b");
    auto* kept = AddCarvedFile(b, u"kept", 0, 10, 0);
    kept->flags = 1;
    auto* gone = AddCarvedFile(b, u"gone", 0, 2048, 0);
    gone->flags = 0;
    auto* other = AddFolder(&top, u"other");
    MarkDeletedView(&top);
    EXPECT_EQ(top.inDeletedView, 1);
    EXPECT_EQ(a->inDeletedView, 1);
    EXPECT_EQ(b->inDeletedView, 1);
    EXPECT_EQ(gone->inDeletedView, 1);
    EXPECT_EQ(kept->inDeletedView, 0);
    EXPECT_EQ(other->inDeletedView, 0);
    auto all = CountForSave(&top, false);
    auto del = CountForSave(&top, true);
    EXPECT_EQ(all.files, 2u);
    EXPECT_EQ(all.bytes, 2058u);
    EXPECT_EQ(del.files, 1u);
    EXPECT_EQ(del.bytes, 2048u);
}

TEST(CNode, SizeColumnAndDeepCopy) {
    EXPECT_EQ(FormatSizeKB(0), "0 KB");
    EXPECT_EQ(FormatSizeKB(1023), "0 KB");
    EXPECT_EQ(FormatSizeKB(5ull * 1024 * 1024 * 1024), "5,242,880 KB");
    CNode src;
    auto* f = AddFolder(&src, u"nine_char");
    auto* file = AddCarvedFile(f, u"x.jpg", 5, 77, 12);
    file->inDeletedView = 1;
    CNode copy;
    DeepCopy(src.firstChild, &copy);
    ASSERT_NE(copy.firstChild, nullptr);
    EXPECT_EQ(copy.firstChild->nameLength, 23);
    const CNode* c = copy.firstChild->firstChild;
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->size, 77u);
    EXPECT_EQ(c->carved, 1);
    EXPECT_EQ(c->startOffset, 0u);   // not copied
    EXPECT_EQ(c->inDeletedView, 0);  // not copied
}

TEST(CNode, DeepChainIsFreedWithoutRecursion) {
    auto top = std::make_unique<CNode>();
    CNode* n = top.get();
    for (int i = 0; i < 200000; ++i) n = AddFolder(n, u"d");
    top.reset(); // must not overflow the stack
    SUCCEED();
}
