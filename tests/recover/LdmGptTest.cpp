// A GPT dynamic disk: the metadata partition holds the database (its private header in the last
// sector), volume pieces count from the data partition's first sector.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "TestImages.h"
#include "recover/Ldm.h"
#include "storage/SourceLayout.h"

namespace kestrin {

TEST(LdmGpt, VolumesOfTheDataPartitionAreListedAndReadable) {
    InstallLdmDatabaseReader();
    std::string path = test::UnpackImage("ldm-dynamic-gpt");
    ASSERT_FALSE(path.empty());
    CPhysicalDisk disk;
    ASSERT_TRUE(disk.AttachImageFile(path));
    Layout layout;
    auto parts = ListPartitions(disk, layout);
    EXPECT_EQ(layout, Layout::Gpt);
    ASSERT_EQ(parts.size(), 2u);
    // As GPT entries keep them: first and last sector.
    EXPECT_EQ(parts[0].startSector, 8192u);
    EXPECT_EQ(parts[0].length, 8192u + 32768 - 1);
    EXPECT_EQ(parts[0].fsKind, kFsNtfs);
    EXPECT_EQ(parts[1].startSector, 45056u);
    EXPECT_EQ(parts[1].length, 45056u + 81920 - 1);
    EXPECT_EQ(parts[1].fsKind, kFsFat32);

    const auto& kept = disk.AssembledVolumes();
    ASSERT_EQ(kept.size(), 2u);
    EXPECT_EQ(kept[0].name, "Simple");
    EXPECT_FALSE(kept[0].open);
    ASSERT_TRUE(kept[1].open);
    auto spanned = kept[1].open(*disk.Handle());
    ASSERT_NE(spanned, nullptr);
    ASSERT_EQ(spanned->Size(), 81920u * 512);
    // The volume's second piece is the disk's 98304th sector on.
    std::vector<uint8_t> fromVolume(4096), fromDisk(4096);
    ASSERT_EQ(spanned->ReadAt(fromVolume.data(), fromVolume.size(), 40960ull * 512), 4096);
    ASSERT_EQ(disk.Handle()->ReadAt(fromDisk.data(), fromDisk.size(), 98304ull * 512), 4096);
    EXPECT_EQ(fromVolume, fromDisk);
    ASSERT_EQ(spanned->ReadAt(fromVolume.data(), 512, 0), 512);
    EXPECT_EQ(std::memcmp(fromVolume.data() + 0x52, "FAT32", 5), 0);

    // The database read directly: pieces relative to the data partition at 4096.
    auto volumes = ReadLdmVolumes(disk, 2048, 2048, 4096, "7c1e5a20-94b3-4d6f-8a02-3e9b7d4c1f65");
    ASSERT_EQ(volumes.size(), 2u);
    EXPECT_TRUE(volumes[1].complete);
    ASSERT_EQ(volumes[1].extents.size(), 2u);
    EXPECT_EQ(volumes[1].extents[1].startSector, 98304u);
}

} // namespace kestrin
