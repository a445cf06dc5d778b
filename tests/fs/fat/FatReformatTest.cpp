// The search for a previous FAT file system after a quick format: the old FAT is gone, so folders
// are pieced together from their clusters and files read from their first cluster onward.
#include <gtest/gtest.h>

#include <set>

#include "fs/fat/FatBuilder.h"
#include "fs/fat/FatEngine.h"
#include "fs/fat/VolumeImageCheck.h"
#include "util/Text.h"

namespace kestrin::test {
namespace {

// Offers every cluster of the volume, as the whole-volume search would find them.
Outcome RebuildFromEveryCluster(CPhysicalDisk& media, int, ScanContext& ctx) {
    std::vector<uint32_t> all;
    const uint64_t clusters = media.GetSectorCount(); // at least as many as there are
    for (uint64_t c = 2; c < clusters + 2; ++c) all.push_back(uint32_t(c));
    return FatRebuildFolders(media, all, ctx);
}

std::string Content(ScannedVolume& v, const CNode* n, ContentResult* r = nullptr) {
    return n ? ReadContent(FatWriteContent, v.media, *n, r) : "<missing>";
}

// Every name below `folder` (Lost included) with its node.
std::multimap<std::string, const CNode*> AllByName(const CNode* folder) {
    std::multimap<std::string, const CNode*> out;
    std::vector<const CNode*> stack{folder};
    while (!stack.empty()) {
        const CNode* n = stack.back();
        stack.pop_back();
        for (const CNode* c = n->firstChild; c; c = c->nextSibling) {
            out.emplace(ToUtf8(c->name), c);
            stack.push_back(c);
        }
    }
    return out;
}

TEST(FatFolderShape, EntriesPassDataDoesNot) {
    std::vector<uint8_t> c(512, 0);
    EXPECT_EQ(FatFolderClusterShape(c, 100), FatFolderShape::kNone); // zeros: no entry
    size_t n = FatBuilder::Long(c.data(), u"A long file name.txt", "ALONGF~1TXT", 5, 10);
    EXPECT_EQ(FatFolderClusterShape(c, 100), FatFolderShape::kEnds);
    c[n * 32 + 40] = 1; // something after the end mark: not a folder's unused space
    EXPECT_EQ(FatFolderClusterShape(c, 100), FatFolderShape::kNone);
    c[n * 32 + 40] = 0;
    EXPECT_EQ(FatFolderClusterShape(c, 4), FatFolderShape::kNone); // cluster beyond the volume
    for (size_t i = 0; i < 16; ++i) FatBuilder::Short(c.data() + 32 * i, "\xE5ILE    BIN", 0x20, 7, 1);
    EXPECT_EQ(FatFolderClusterShape(c, 100), FatFolderShape::kFull);
    c[0x0B] = 0x41; // text where the attributes lie
    EXPECT_EQ(FatFolderClusterShape(c, 100), FatFolderShape::kNone);
    std::string text(512, ' ');
    for (size_t i = 0; i < text.size(); ++i) text[i] = "THE QUICK BROWN FOX 0123456789\r\n"[i % 32];
    EXPECT_EQ(FatFolderClusterShape({reinterpret_cast<const uint8_t*>(text.data()), text.size()}, 100),
              FatFolderShape::kNone);
}

// Old folders with their FAT chains cleared: a full folder goes on in the nearest folder-shaped
// free cluster after it, not in clusters the current file system uses; a run of entries with no
// open folder before it is a folder whose first cluster is gone; a "." naming another cluster is
// not this volume's; a folder entry met later names a folder known only by its number.
TEST(FatReformat, FoldersPiecedTogetherAfterTheFatWasCleared) {
    FatBuilder b(FsKind::Fat32);
    auto fill = [&](uint32_t c, char ch) { std::memset(b.Cluster(c), ch, 512); };
    FatBuilder::Dots(b.Cluster(50), 50, 0);
    for (int k = 0; k < 14; ++k) {
        char name[12];
        std::snprintf(name, sizeof name, "FILE%02d  TXT", k);
        FatBuilder::Short(b.Cluster(50) + 64 + 32 * k, name, 0x20, 100 + k, 1);
    }
    fill(51, 'a'), fill(52, 'b');                                // its files' data
    FatBuilder::Short(b.Cluster(53), "LAST    TXT", 0x20, 60, 1300); // 50 goes on here
    fill(60, 'x'), fill(61, 'y'), fill(62, 'z');
    FatBuilder::Short(b.Cluster(54), "STRAY   TXT", 0x20, 63, 1);   // 50 ended in 53
    FatBuilder::Short(b.Cluster(54) + 32, "NAMED      ", 0x10, 70, 0, 0x4321);
    FatBuilder::Dots(b.Cluster(70), 70, 0);
    for (int k = 0; k < 14; ++k) FatBuilder::Short(b.Cluster(70) + 64 + 32 * k, "\xE5OLD    TXT", 0x20, 64, 1);
    FatBuilder::Short(b.Cluster(71), "NEWFS   TXT", 0x20, 65, 1);   // in use now
    b.Chain({71});
    FatBuilder::Short(b.Cluster(72), "OLD2    TXT", 0x20, 66, 1);
    FatBuilder::Dots(b.Cluster(80), 90, 0);                        // another volume's folder
    FatBuilder::Short(b.Cluster(80) + 64, "WRONG   TXT", 0x20, 67, 1);

    auto v = ScanMemory(b.img, FsKind::Fat32, RebuildFromEveryCluster, 0);
    ASSERT_TRUE(v && v->root);
    auto found = Flatten(v->root);
    EXPECT_TRUE(found.count("#50/FILE13.TXT"));
    ASSERT_TRUE(found.count("#50/LAST.TXT"));
    ASSERT_TRUE(found.count("NAMED/OLD2.TXT"));
    EXPECT_EQ(found["NAMED"]->createdDate, 0x4321);
    CNode* lost = FindChild(v->root, u"Lost");
    ASSERT_TRUE(lost);
    EXPECT_EQ(Paths(lost), (std::vector<std::string>{"#54", "#54/STRAY.TXT"}));
    auto names = AllByName(v->root);
    EXPECT_EQ(names.count("NEWFS.TXT") + names.count("WRONG.TXT"), 0u);
    EXPECT_EQ(names.count("NAMED"), 1u);

    // What the rebuilt folders hold counts as deleted and reads on from its first cluster over the
    // free ones.
    ContentResult r;
    EXPECT_EQ(Content(*v, found["#50/LAST.TXT"], &r), std::string(512, 'x') + std::string(512, 'y') + std::string(276, 'z'));
    EXPECT_TRUE(r.ok);
    EXPECT_TRUE(found["#50/LAST.TXT"]->IsDeleted());
}

// On a volume whose FAT still describes its folders, the formatted search follows the chains.
TEST(FatReformat, LiveChainsStillFollowed) {
    FatBuilder b(FsKind::Fat32);
    FatBuilder::Dots(b.Cluster(50), 50, 0);
    for (int k = 0; k < 14; ++k) FatBuilder::Short(b.Cluster(50) + 64 + 32 * k, "A       TXT", 0x20, 100, 1);
    FatBuilder::Short(b.Cluster(53), "CHAINED TXT", 0x20, 101, 1);
    FatBuilder::Short(b.Cluster(51), "OTHER   TXT", 0x20, 102, 1); // shaped like a folder, not chained
    b.Chain({50, 53});
    auto v = ScanMemory(b.img, FsKind::Fat32, RebuildFromEveryCluster, 0);
    auto names = AllByName(v->root);
    EXPECT_EQ(names.count("CHAINED.TXT"), 1u);
    EXPECT_EQ(Flatten(v->root).count("#50/CHAINED.TXT"), 1u);
}

// fat32-features quick-formatted again with the same clusters: every old file is listed with its
// name and size, the contiguous ones read back exactly, and the folder that grew between its
// files ("Many entries", 25 clusters among 100 files) is one folder again.
TEST(FatReformat, QuickFormattedFat32ListsTheOldFiles) {
    auto [image, manifest] = OpenFixture("recovery-fat32-over-fat32", false);
    if (image.empty()) GTEST_SKIP() << "recovery-fat32-over-fat32 not available";
    auto [original, oldManifest] = OpenFixture("fat32-features", false);
    ASSERT_FALSE(original.empty());
    const auto& part = manifest["partitions"][0];
    auto v = Scan(image, {}, FsKind::Fat32, 0, part["sectors"], RebuildFromEveryCluster, 0);
    ASSERT_TRUE(v && v->root);
    auto names = AllByName(v->root);
    std::ifstream in(original, std::ios::binary);
    std::map<std::string, nlohmann::json> extents; // the old volume's file places
    for (const auto& f : oldManifest["partitions"][0]["files"])
        if (f.contains("extents")) extents[f["path"]] = f["extents"];
    size_t listed = 0, exact = 0, wanted = 0, contiguous = 0;
    std::set<const CNode*> manyParents;
    for (const auto& f : part["previous_file_systems"][0]["files"]) {
        if (f["type"] != "file" || f["size"] == 0) continue;
        ++wanted;
        std::string path = f["path"], leaf = path.substr(path.rfind('/') + 1);
        const CNode* n = nullptr;
        for (auto [it, end] = names.equal_range(leaf); it != end && !n; ++it)
            if (it->second->size == f["size"]) n = it->second;
        // A deleted short name lost its first character.
        for (const auto& [name, node] : names)
            if (!n && f["deleted"] && name.size() == leaf.size() && name[0] == 'X' && name.substr(1) == leaf.substr(1) &&
                node->size == f["size"])
                n = node;
        if (!n) {
            ADD_FAILURE() << "missing: " << path;
            continue;
        }
        ++listed;
        if (path.rfind("Many entries/", 0) == 0) manyParents.insert(n->parent);
        if (!f.value("content_intact", false) || extents[path].size() != 1) continue;
        ++contiguous;
        std::string expected(f["size"].get<size_t>(), '\0');
        in.seekg(extents[path][0][0].get<int64_t>());
        in.read(expected.data(), std::streamsize(expected.size()));
        ContentResult r;
        if (Content(*v, n, &r) == expected && r.ok) ++exact;
        else ADD_FAILURE() << "content: " << path;
    }
    EXPECT_EQ(listed, wanted);
    EXPECT_EQ(exact, contiguous);
    EXPECT_GT(contiguous, 130u);
    EXPECT_EQ(manyParents.size(), 1u);
}

} // namespace
} // namespace kestrin::test
