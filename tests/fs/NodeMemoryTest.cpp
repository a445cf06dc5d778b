// Node memory and node names: blocks go back once everything cut from them is freed, whichever
// thread made or frees the nodes; names read back as stored through every way of changing them.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "fs/CNode.h"
#include "fs/NodeMemory.h"

using namespace kestrin;

namespace {

// A volume-like tree: `folders` folders of `files` files each, names of varied length.
std::unique_ptr<CNode> BuildTree(int folders, int files) {
    auto top = std::make_unique<CNode>();
    for (int d = 0; d < folders; ++d) {
        CNode* folder = AddFolder(top.get(), u"Folder " + std::u16string(size_t(d % 40), u'x'));
        for (int f = 0; f < files; ++f) {
            std::string n = "file " + std::to_string(f) + ".txt";
            AddCarvedFile(folder, std::u16string(n.begin(), n.end()), uint64_t(f), 10, 0);
        }
    }
    return top;
}

} // namespace

TEST(NodeMemory, TreesMadeOnOneThreadAndFreedOnAnotherGiveTheirBlocksBack) {
    const size_t before = node_memory::LiveBlocks();
    std::unique_ptr<CNode> tree;
    // Made on a worker that ends (its block is let go then), freed here, as scans are.
    std::thread([&] { tree = BuildTree(50, 2000); }).join();
    EXPECT_GT(node_memory::LiveBlocks(), before + 5); // 100,000 nodes do not fit in a few blocks
    // Unlinked parts live on their own until deleted; the rest of the tree is untouched.
    CNode* second = tree->firstChild->nextSibling;
    ASSERT_TRUE(tree->Unlink(second));
    delete second;
    int folders = 0;
    for (CNode* c = tree->firstChild; c; c = c->nextSibling) ++folders;
    EXPECT_EQ(folders, 49);
    EXPECT_EQ(tree->firstChild->nextSibling->parent, tree.get());
    tree.reset();
    EXPECT_EQ(node_memory::LiveBlocks(), before);

    // A name too large for a shared block gets one of its own, gone with the name.
    {
        NodeName big{std::u16string(node_memory::kBlockBytes, u'a')};
        EXPECT_EQ(node_memory::LiveBlocks(), before + 1);
        EXPECT_EQ(big.size(), node_memory::kBlockBytes);
        EXPECT_EQ(big[node_memory::kBlockBytes - 1], u'a');
    }
    EXPECT_EQ(node_memory::LiveBlocks(), before);
}

TEST(NodeName, ReadsBackWhatWasStoredThroughEveryChange) {
    NodeName n;
    EXPECT_TRUE(n.empty());
    EXPECT_EQ(n, u"");
    EXPECT_EQ(n.str(), u"");
    n = u"report.doc";
    EXPECT_EQ(n, u"report.doc");
    EXPECT_EQ(n.size(), 10u);
    n = u"REPORT.DOC"; // same length: written over in place
    EXPECT_EQ(n, u"REPORT.DOC");
    n = std::u16string(u"a\u00e9\U0001F600z"); // a surrogate pair is two units
    EXPECT_EQ(n.size(), 5u);
    EXPECT_EQ(std::u16string(n), u"a\u00e9\U0001F600z");
    n = n.view().substr(1, 3); // assigning part of itself
    EXPECT_EQ(n, u"\u00e9\U0001F600");
    const NodeName& same = n;
    n = same; // assigning a name to itself keeps it
    EXPECT_EQ(n.size(), 3u);
    n.assign(u"photo.jpg");
    EXPECT_EQ(n.rfind(u'.'), 5u);
    EXPECT_EQ(n.substr(6), u"jpg");
    EXPECT_EQ(n + u"!", u"photo.jpg!");
    EXPECT_LT(n, NodeName(u"zz"));

    NodeName copy(n), moved(std::move(n));
    EXPECT_TRUE(n.empty()); // what was moved from is empty
    EXPECT_EQ(copy, moved);
    copy[0] = u'P';
    EXPECT_EQ(copy, u"Photo.jpg");
    EXPECT_EQ(moved, u"photo.jpg");
    copy = NodeName();
    EXPECT_TRUE(copy.empty());
    EXPECT_EQ(copy.data(), nullptr);
}
