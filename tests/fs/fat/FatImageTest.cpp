// FAT16 and FAT32 volumes made by mkfs.vfat and mtools, checked against their manifests: the
// listing (path, folder, deleted, size) and the content read back.
#include <gtest/gtest.h>

#include <cctype>
#include <cstring>

#include "fs/fat/FatEngine.h"
#include "fs/fat/VolumeImageCheck.h"

namespace kestrin::test {
namespace {

// Whether an item has a long name: from the manifest when it says, else whether its name is not a
// plain 8.3 name with base and extension each in one case (those need none: the case byte).
bool HasLongName(const nlohmann::json& item, const std::string& leaf) {
    if (item.contains("long_name")) return item["long_name"];
    size_t dot = leaf.find('.');
    std::string base = leaf.substr(0, dot), ext = dot == std::string::npos ? "" : leaf.substr(dot + 1);
    auto plain = [](const std::string& s) {
        bool upper = false, lower = false;
        for (unsigned char ch : s) {
            upper |= bool(std::isupper(ch)), lower |= bool(std::islower(ch));
            if (!std::isalnum(ch) && !std::strchr("_~!#$%&'()-@^{}", ch)) return false;
        }
        return !(upper && lower);
    };
    return base.empty() || base.size() > 8 || ext.size() > 3 || !plain(base) || !plain(ext);
}

// The engine's deliberate differences from what was created:
// - a deleted entry without a long name shows "X" for the lost first character of its short
//   name (its own and in the paths below a deleted folder);
std::pair<std::string, bool> ExpectFat(const nlohmann::json& item, const std::map<std::string, nlohmann::json>& all) {
    std::string path = item["path"], out, prefix;
    for (size_t start = 0; start <= path.size();) {
        size_t slash = std::min(path.find('/', start), path.size());
        std::string part = path.substr(start, slash - start);
        prefix += (prefix.empty() ? "" : "/") + part;
        const nlohmann::json& owner = all.at(prefix);
        if (owner["deleted"].get<bool>() && !HasLongName(owner, part)) part[0] = 'X';
        out += (out.empty() ? "" : "/") + part;
        start = slash + 1;
    }
    bool gone = item["deleted"].get<bool>() && item.value("entry_intact", true) == false;
    return {out, !gone};
}

class FatImage : public ::testing::TestWithParam<std::pair<const char*, bool>> {};

TEST_P(FatImage, ListingAndContentMatchManifest) {
    auto [image, manifest] = OpenFixture(GetParam().first, GetParam().second);
    if (image.empty()) GTEST_SKIP() << GetParam().first << " not available";
    for (const auto& part : manifest["partitions"]) {
        std::string fs = part["fs"];
        if (fs != "fat16" && fs != "fat32") continue;
        FsKind kind = fs == "fat16" ? FsKind::Fat16 : FsKind::Fat32;
        auto v = Scan(image, {}, kind, part["start_sector"], part["sectors"], FatScanVolume);
        ASSERT_TRUE(v && v->root);
        EXPECT_EQ(v->root->recordId, kind == FsKind::Fat16 ? 1u : 2u); // the FAT16 root region, cluster 2 on FAT32
        auto problems = CompareWithManifest(image, part, *v, FatWriteContent, ExpectFat);
        EXPECT_EQ(problems, std::vector<std::string>()) << part["start_sector"];
    }
}

INSTANTIATE_TEST_SUITE_P(Images, FatImage,
                         ::testing::Values(std::pair{"fat32-features", false}, std::pair{"fat16-features", false},
                                           std::pair{"fat16-small", false}, std::pair{"fat32-deleted-small", true},
                                           std::pair{"fat16-deleted-small", true}, std::pair{"disk-mbr-small", true},
                                           std::pair{"disk-gpt-small", true}, std::pair{"fat32-4k", false},
                                           std::pair{"disk-gpt-4k", false}, std::pair{"disk-mbr-slot1-empty", false}));

} // namespace
} // namespace kestrin::test
