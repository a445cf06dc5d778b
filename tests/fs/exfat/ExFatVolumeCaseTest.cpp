// exFAT volumes made by mkfs.exfat and exfat-fuse that hold ordinary contents the walk used to
// lose (scripts/fixtures/make-volume-case-fixtures).
#include <gtest/gtest.h>

#include <filesystem>

#include "TestImages.h"
#include "fs/exfat/ExFatEngine.h"
#include "fs/fat/VolumeCaseCheck.h"
#include "storage/BootSector.h"

namespace kestrin::test {
namespace {

// A folder of 512 empty files (first cluster 0), and empty files deleted: every one listed, size
// 0, read as empty.
TEST(ExFatVolumeCase, EmptyFilesAreListed) {
    nlohmann::json m;
    auto v = ScanCase("exfat-empty", FsKind::ExFat, ExFatScanVolume, m);
    if (!v) GTEST_SKIP() << "exfat-empty not available";
    EXPECT_EQ(CaseProblems(*v, m, ExFatWriteContent), std::vector<std::string>());
}

// The boot sector's cluster rule takes the shift for a count ("1 or even"): shift 0 (one sector
// per cluster) fails it as 3, 5 and 7 do. The record keeps its geometry and the volume is read.
TEST(ExFatVolumeCase, OneSectorClustersFailTheBootTestButAreRead) {
    nlohmann::json m;
    auto v = ScanCase("exfat-1sector", FsKind::ExFat, ExFatScanVolume, m);
    if (!v) GTEST_SKIP() << "exfat-1sector not available";
    std::vector<uint8_t> boot(512);
    ASSERT_TRUE(v->media.ReadSectors(boot.data(), 512, 0, true));
    EXPECT_FALSE(IsExFatBootSector(v->media, boot));
    PartitionRecord r;
    FillExFatRecord(v->media, boot, r);
    EXPECT_EQ(r.sectorsPerCluster, 1u);
    EXPECT_EQ(CaseProblems(*v, m, ExFatWriteContent), std::vector<std::string>());
}

// The largest clusters exFAT allows (32 MiB: 65,536 sectors, which an 8-bit count turned into 0) on
// a 2 TiB volume: the unpacked head is extended to its full size as a sparse file.
TEST(ExFatVolumeCase, LargestClustersOnATwoTebibyteVolume) {
    nlohmann::json m;
    auto [image, manifest] = OpenFixture("exfat-2t-32m", false);
    if (image.empty()) GTEST_SKIP() << "exfat-2t-32m not available";
    const uint64_t full = manifest["full_size_bytes"];
    std::string sparse = image + ".full";
    std::filesystem::copy_file(image, sparse, std::filesystem::copy_options::overwrite_existing);
    std::filesystem::resize_file(sparse, full);
    auto v = Scan(sparse, {}, FsKind::ExFat, 0, full / 512, ExFatScanVolume);
    ASSERT_TRUE(v && v->root);
    std::vector<uint8_t> boot(512);
    ASSERT_TRUE(v->media.ReadSectors(boot.data(), 512, 0, true));
    PartitionRecord r;
    FillExFatRecord(v->media, boot, r);
    EXPECT_EQ(r.sectorsPerCluster, manifest["sectors_per_cluster"].get<uint32_t>());
    EXPECT_EQ(r.bytesPerCluster, 32u << 20);
    EXPECT_EQ(CaseProblems(*v, manifest, ExFatWriteContent), std::vector<std::string>());
    v.reset();
    std::filesystem::remove(sparse);
}

// Valid data length below the data length: the size is the data length and the bytes past the
// valid length read as zeros (the clusters there hold what exfat-fuse wrote before the patch).
TEST(ExFatVolumeCase, BytesPastTheValidDataLengthReadAsZeros) {
    nlohmann::json m;
    auto v = ScanCase("exfat-vdl", FsKind::ExFat, ExFatScanVolume, m);
    if (!v) GTEST_SKIP() << "exfat-vdl not available";
    EXPECT_EQ(CaseProblems(*v, m, ExFatWriteContent), std::vector<std::string>());
}

} // namespace
} // namespace kestrin::test
