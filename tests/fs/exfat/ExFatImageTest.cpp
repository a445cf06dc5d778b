// exFAT volumes made by mkfs.exfat and exfat-fuse, checked against their manifests: the listing
// (path, folder, deleted, size) and the content read back.
#include <gtest/gtest.h>

#include <fstream>

#include "fs/exfat/ExFatEngine.h"
#include "fs/fat/VolumeImageCheck.h"
#include "util/Bytes.h"

namespace kestrin::test {
namespace {

uint64_t g_heapStart, g_clusterBytes, g_rootCluster;

// The engine's deliberate differences from what was created:
// - an item whose first cluster is not above the root folder's is dropped (an empty file, with
//   cluster 0, is listed);
// - an entry set that does not end in the cluster where it starts is lost.
std::pair<std::string, bool> ExpectExFat(const nlohmann::json& item, const std::map<std::string, nlohmann::json>&) {
    std::string path = item["path"];
    const uint64_t first = item.value("first_cluster", uint64_t(0));
    if (first != 0 && first <= g_rootCluster) return {path, false};
    if (!item.contains("dir_entry_offset")) return {path, true};
    size_t units = ToUtf16(path.substr(path.rfind('/') + 1)).size();
    uint64_t inCluster = (item["dir_entry_offset"].get<uint64_t>() - g_heapStart) % g_clusterBytes;
    return {path, inCluster + 32 * (2 + (units + 14) / 15) <= g_clusterBytes};
}

class ExFatImage : public ::testing::TestWithParam<std::pair<const char*, bool>> {};

TEST_P(ExFatImage, ListingAndContentMatchManifest) {
    auto [image, manifest] = OpenFixture(GetParam().first, GetParam().second);
    if (image.empty()) GTEST_SKIP() << GetParam().first << " not available";
    for (const auto& part : manifest["partitions"]) {
        if (part["fs"] != "exfat") continue;
        uint64_t start = part["start_sector"];
        const uint64_t ss = part.value("sector_size", 512);
        uint8_t boot[512] = {};
        std::ifstream(image, std::ios::binary).seekg(int64_t(start * ss)).read(reinterpret_cast<char*>(boot), 512);
        g_heapStart = start * ss + (uint64_t(Le32(boot + 88)) << boot[108]);
        g_clusterBytes = uint64_t(1) << (boot[108] + boot[109]);
        g_rootCluster = Le32(boot + 96);
        auto v = Scan(image, {}, FsKind::ExFat, start, part["sectors"], ExFatScanVolume);
        ASSERT_TRUE(v && v->root);
        EXPECT_EQ(v->root->recordId, g_rootCluster);
        auto problems = CompareWithManifest(image, part, *v, ExFatWriteContent, ExpectExFat);
        EXPECT_EQ(problems, std::vector<std::string>()) << start;
    }
}

INSTANTIATE_TEST_SUITE_P(Images, ExFatImage,
                         ::testing::Values(std::pair{"exfat-features", false}, std::pair{"exfat-deleted-small", true},
                                           std::pair{"disk-gpt-small", true}, std::pair{"disk-gpt-4k", false}));

} // namespace
} // namespace kestrin::test
