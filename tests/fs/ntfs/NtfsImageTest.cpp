// End to end over real volumes: every file and folder of a fixture's manifest is looked up in the
// scan result and every intact file's content is hashed.
//
// Deliberate differences from the manifests (and from The Sleuth Kit's listings):
//  - a deleted item whose MFT record was re-used (entry_intact false) is gone from the MFT;
//  - orphans (a folder above them was re-used) are placed by their parent's record number: under
//    the folder that now holds that number, or under "Lost", not at their original path;
//  - the metadata files "$MFT" ... "$UpCase" and the root's own record are not listed, while the
//    extend folder "$Extend" and its sub-folders are; "Lost" is always present;
//  - alternate data streams are not items of their own;
//  - an item with only a DOS name is named "#<record number>" and, its parent being unknown, sits
//    in "Lost";
//  - dates are days only; folders known only from an index entry show its last-access date as
//    their modified date (items from MFT records show the modification date).
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <nlohmann/json.hpp>

#include "NtfsTestSupport.h"
#include "Sha256.h"
#include "TestImages.h"
#include "storage/CPhysicalDisk.h"

using namespace kestrin;
using namespace kestrin::test;

namespace {

struct Checked {
    int listed = 0, hashed = 0;
};

Checked CompareWithManifest(const std::string& image, const std::string& manifestPath, uint32_t sectorSize) {
    Checked c;
    std::ifstream in(manifestPath);
    auto manifest = nlohmann::json::parse(in);
    for (auto& part : manifest["partitions"]) {
        if (part["fs"] != "ntfs") continue;
        uint64_t start = part["start_sector"].get<uint64_t>() * 512 / sectorSize;
        CPhysicalDisk media;
        EXPECT_TRUE(media.AttachImageFile(image, sectorSize));
        uint64_t count = media.GetSectorCount();
        media.SetFirstSector(start);
        media.SetSectorCount(count - start);
        ScanHarness h;
        NtfsScanVolume(media, 1, h.ctx);
        CNode* vol = h.Volume();
        EXPECT_NE(vol, nullptr) << image;
        if (!vol) return c;
        std::map<std::string, CNode*> byPath;
        std::multimap<std::string, CNode*> byName;
        for (auto& l : ListTree(vol)) {
            CNode* n = FindPath(vol, l.path);
            byPath[l.path] = n;
            byName.emplace(ToUtf8(n->name), n);
        }
        std::set<CNode*> matched;
        for (auto& f : part["files"]) {
            std::string path = f["path"].get<std::string>();
        path.insert(path.begin(), '/');
            bool dir = f["type"] == "dir", deleted = f["deleted"].get<bool>();
            uint64_t size = dir ? 0 : f.value("size", uint64_t(0));
            bool intact = !deleted || f.value("entry_intact", false);
            if (!intact) {
                EXPECT_EQ(byPath.count(path), 0u) << path << " should not be listed";
                continue;
            }
            CNode* n = nullptr;
            if (byPath.count(path)) {
                n = byPath[path];
            } else if (f.value("orphan", false)) {
                std::string name = path.substr(path.rfind('/') + 1);
                for (auto [it, end] = byName.equal_range(name); it != end; ++it)
                    if (it->second->recordId == f["mft_record"].get<uint32_t>()) n = it->second;
            }
            EXPECT_NE(n, nullptr) << path << " missing";
            if (!n) continue;
            ++c.listed;
            matched.insert(n);
            EXPECT_EQ(n->IsFolder(), dir) << path;
            EXPECT_EQ(n->IsDeleted(), deleted) << path;
            auto hashOk = [&](CNode* item, const nlohmann::json& want, const std::string& shown) {
                HexSha256 sha;
                ContentResult r = NtfsWriteContent(media, *item, [&](const uint8_t* p, size_t len) {
                    sha.Update(p, len);
                    return true;
                });
                EXPECT_TRUE(r.ok) << shown;
                EXPECT_EQ(sha.Hex(), want["sha256"].get<std::string>()) << shown;
                ++c.hashed;
            };
            // Named streams are items "path:stream" beside their file, in its state.
            for (auto& st : f.value("streams", nlohmann::json::array())) {
                std::string shown = path + ":" + st["name"].get<std::string>();
                CNode* sn = byPath.count(shown) ? byPath[shown] : nullptr;
                EXPECT_NE(sn, nullptr) << shown << " missing";
                if (!sn) continue;
                matched.insert(sn);
                EXPECT_TRUE((sn->flags & kNodeNtfsStream) && !sn->IsFolder()) << shown;
                EXPECT_EQ(sn->IsDeleted(), deleted) << shown;
                EXPECT_EQ(sn->size, st["size"].get<uint64_t>()) << shown;
                if (st.contains("sha256") && st.value("content_intact", !deleted)) hashOk(sn, st, shown);
            }
            if (dir) continue;
            EXPECT_EQ(n->size, size) << path;
            bool hashable = f["content_intact"].is_boolean() ? f["content_intact"].get<bool>()
                                                             : f.value("compressed", false) && !deleted;
            if (hashable) hashOk(n, f, path);
        }
        // Nothing beyond the manifest except the extend folder's content, "Lost" and the
        // placeholder folders "#<record>" in it.
        for (auto& [p, n] : byPath) {
            bool placeholder = n->parent->name == u"Lost" && n->name.size() > 1 && n->name[0] == u'#';
            if (!matched.count(n) && p.rfind("/$Extend", 0) != 0 && p != "/Lost" && !placeholder)
                ADD_FAILURE() << "unexpected item " << p << " in " << image;
        }
    }
    return c;
}

std::string Fixture(const std::string& name) {
    std::string img = UnpackImage(name);
    if (img.empty()) return {};
    return img;
}

} // namespace

TEST(NtfsImages, CommittedFixturesMatchTheirManifests) {
    struct Case {
        const char* name;
        uint32_t sectorSize;
    } cases[] = {{"ntfs-features", 512}, {"ntfs-4k", 4096}, {"ntfs-4k", 512}};
    for (const Case& c : cases) {
        std::string img = Fixture(c.name);
        ASSERT_FALSE(img.empty()) << c.name;
        std::string manifest = std::string(KESTRIN_SOURCE_DIR) + "/tests/images/" + c.name + ".json";
        Checked got = CompareWithManifest(img, manifest, c.sectorSize);
        EXPECT_GT(got.listed, 0) << c.name;
        EXPECT_GT(got.hashed, 0) << c.name;
    }
}

TEST(NtfsImages, SharedCorpusWhenPresent) {
    const std::string corpus = std::string(KESTRIN_CORPUS_DIR) + "/fixtures/";
    if (!std::filesystem::exists(corpus)) GTEST_SKIP() << "no shared corpus here";
    for (const char* name : {"ntfs-deleted-small", "disk-mbr-small", "disk-gpt-small"}) {
        std::string out = std::string(KESTRIN_BINARY_DIR) + "/test-images/corpus-" + name + ".img";
        if (!std::filesystem::exists(out)) {
            std::filesystem::create_directories(std::string(KESTRIN_BINARY_DIR) + "/test-images");
            std::string cmd = "zstd -q -d -f '" + corpus + name + ".img.zst' -o '" + out + "'";
            ASSERT_EQ(std::system(cmd.c_str()), 0);
        }
        Checked got = CompareWithManifest(out, corpus + name + ".json", 512);
        EXPECT_GT(got.hashed, 0) << name;
    }
}
