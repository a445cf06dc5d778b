#include <gtest/gtest.h>

#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "scan/MediaTypes.h"

using namespace kestrin;

namespace {
CNode* File(CNode* parent, std::u16string name) {
    auto* n = new CNode;
    n->name = std::move(name);
    parent->AppendChild(n);
    return n;
}
CNode* Folder(CNode* parent, std::u16string name) {
    CNode* n = File(parent, std::move(name));
    n->flags = kNodeFolder;
    return n;
}
} // namespace

TEST(MediaTypes, ClassByExtension) {
    EXPECT_EQ(MediaClassOfName(u"IMG_0001.JPG"), MediaClass::Photo);
    EXPECT_EQ(MediaClassOfName(u"a.b.nef"), MediaClass::CameraRaw);
    EXPECT_EQ(MediaClassOfName(u"clip.M2TS"), MediaClass::Video);
    EXPECT_EQ(MediaClassOfName(u"song.mp3"), MediaClass::Audio);
    EXPECT_EQ(MediaClassOfName(u"file#3.m4a"), MediaClass::Audio);
    EXPECT_EQ(MediaClassOfName(u"notes.txt"), MediaClass::None);
    EXPECT_EQ(MediaClassOfName(u"jpg"), MediaClass::None);
    EXPECT_EQ(MediaClassOfName(u"x."), MediaClass::None);
    EXPECT_EQ(MediaClassOfName(u"x.jp\u00e9g"), MediaClass::None);
}

TEST(MediaTypes, PruningRemovesRejectedFilesThenEmptyFoldersDeepestFirst) {
    CNode* top = MakeTopNode();
    CNode* vol = Folder(top, u".");
    Folder(vol, u"Lost");
    CNode* docs = Folder(vol, u"docs");
    File(docs, u"a.doc");
    CNode* deep = Folder(Folder(docs, u"x"), u"y");
    File(deep, u"b.txt");
    CNode* pics = Folder(vol, u"pics");
    File(pics, u"c.txt");
    File(pics, u"d.png");
    CNode* types = Folder(top, u"File Types");
    File(Folder(types, u"pdf"), u"file#1.pdf");
    File(Folder(types, u"jpg"), u"file#1.jpg");

    EXPECT_EQ(PruneToMediaFiles(top), 9u);
    std::vector<std::u16string> left;
    ForEachNode(top, [&](CNode* n) { left.push_back(n->name); });
    EXPECT_EQ(left, (std::vector<std::u16string>{u".", u"pics", u"d.png", u"File Types", u"jpg", u"file#1.jpg"}));
    delete top;
}
