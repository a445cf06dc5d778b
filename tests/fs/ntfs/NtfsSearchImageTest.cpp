// The record search over a whole disk whose one NTFS volume lost its boot sectors and its first
// MFT records: files whose attributes live in extension records are listed whole and read from
// their own volume (which starts at sector 2048, not where the search began).
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "NtfsTestSupport.h"
#include "Sha256.h"
#include "TestImages.h"
#include "fs/ntfs/CNtfsRecordSearch.h"
#include "storage/CPhysicalDisk.h"

using namespace kestrin;
using namespace kestrin::test;

namespace {

const char* kImage = "ntfs-search-attrlist";

nlohmann::json Manifest() {
    std::ifstream in(std::string(KESTRIN_SOURCE_DIR) + "/tests/images/" + kImage + ".json");
    return nlohmann::json::parse(in);
}

std::string Hash(CPhysicalDisk& media, const CNode& n, ContentResult& r) {
    HexSha256 sha;
    r = NtfsWriteContent(media, n, [&](const uint8_t* p, size_t len) {
        sha.Update(p, len);
        return true;
    });
    return sha.Hex();
}

} // namespace

TEST(NtfsSearchImage, WholeDiskSearchFollowsExtensionRecordsAndFindsTheVolume) {
    std::string img = UnpackImage(kImage);
    ASSERT_FALSE(img.empty());
    auto manifest = Manifest();
    const auto& part = manifest["partitions"][0];
    CPhysicalDisk media;
    ASSERT_TRUE(media.AttachImageFile(img, 512));
    {
        // Nothing for the volume walk: no boot sector anywhere.
        ScanHarness h;
        NtfsScanVolume(media, 1, h.ctx);
        EXPECT_EQ(h.Volume(), nullptr);
    }
    ScanHarness h;
    NtfsSearchRecords(media, 0, media.GetSectorCount(), h.ctx);
    CNode* vol = h.Volume();
    ASSERT_NE(vol, nullptr);
    int attributeLists = 0, hashed = 0;
    for (const auto& f : part["files"]) {
        if (f["type"] != "file") continue;
        std::string path = f["path"].get<std::string>();
        path.insert(path.begin(), '/');
        CNode* n = FindPath(vol, path);
        ASSERT_NE(n, nullptr) << path;
        EXPECT_EQ(n->size, f["size"].get<uint64_t>()) << path;
        // The record lies inside the volume, and the node says how far.
        EXPECT_EQ(n->location - n->startOffset, part["start_sector"].get<uint64_t>()) << path;
        ContentResult r;
        EXPECT_EQ(Hash(media, *n, r), f["sha256"].get<std::string>()) << path;
        EXPECT_TRUE(r.ok) << path;
        ++hashed;
        attributeLists += f.value("attribute_list", false);
    }
    EXPECT_GE(attributeLists, 2); // the fragmented file and the many-named one
    EXPECT_EQ(hashed, int(part["files"].size()) - 1);
}

TEST(NtfsSearchImage, VolumePlacementNeedsAgreeingRecords) {
    std::string img = UnpackImage(kImage);
    ASSERT_FALSE(img.empty());
    auto manifest = Manifest();
    const auto& part = manifest["partitions"][0];
    std::ifstream in(img, std::ios::binary);
    std::vector<uint8_t> disk((std::istreambuf_iterator<char>(in)), {});
    const uint64_t mirror = part["mirror_byte"].get<uint64_t>();
    const uint64_t start = part["start_sector"].get<uint64_t>() * 512;
    ASSERT_LT(mirror + 4096, disk.size());

    CNtfsRecordSearch search;
    auto offerAll = [&](const std::vector<uint8_t>& d) {
        for (size_t off = 0; off + 512 <= d.size(); off += 512)
            search.Offer(off / 512, std::span<const uint8_t>(d.data() + off, d.size() - off));
    };
    // With the mirror's copy of record 0 the MFT's runs are known: the records in the MFT agree
    // on one start; the mirror's own four copies (which would place it elsewhere) are outvoted.
    offerAll(disk);
    std::unique_ptr<CNode> top(MakeTopNode());
    search.AttachTo(top.get());
    ASSERT_EQ(search.Volumes().size(), 1u);
    EXPECT_EQ(search.Volumes()[0].startByte, start);
    EXPECT_EQ(search.Volumes()[0].bytesPerCluster, part["cluster_size"].get<uint32_t>());

    // Without any copy of record 0 nothing is placed, and without a media no node claims a
    // volume of its own (content then reads from the searched range, as before).
    std::fill(disk.begin() + mirror, disk.begin() + mirror + 4096, 0);
    offerAll(disk);
    std::unique_ptr<CNode> top2(MakeTopNode());
    search.AttachTo(top2.get());
    EXPECT_TRUE(search.Volumes().empty());
    CNode* vol = FindVolumeRoot(top2.get());
    ASSERT_NE(vol, nullptr);
    CNode* notes = FindPath(vol, "/notes.txt");
    ASSERT_NE(notes, nullptr);
    EXPECT_EQ(notes->startOffset, 0u);
}
