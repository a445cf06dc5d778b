// Dynamic disks: the database read behind an MBR and behind a GPT, the checks on the private
// header, the extent source of a striped volume, and databases that lie.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <vector>

#include "TestImages.h"
#include "storage/Ldm.h"
#include "storage/LdmLayout.h"
#include "storage/SourceLayout.h"

namespace kestrin {
namespace {

namespace privhead = layout::ldm::privhead;
namespace tocblock = layout::ldm::tocblock;
namespace vmdb = layout::ldm::vmdb;
namespace vblk = layout::ldm::vblk;

// The MBR image: the configuration area is the disk's last 2,048 sectors, volume pieces count
// from sector 63.
constexpr uint64_t kMbrDiskSectors = 262144;
constexpr uint64_t kMbrConfigStart = kMbrDiskSectors - 2048;

void AttachBytes(CPhysicalDisk& disk, std::vector<uint8_t> bytes) {
    uint64_t n = bytes.size() / 512;
    disk.Attach(std::make_unique<MemorySource>(std::move(bytes)));
    disk.SetSectorSize(512);
    disk.SetSectorCount(n);
}

} // namespace

// The private header is checked before its database is read: a configuration area of another
// size, an empty logical disk, or one that runs into the configuration area (also by wrapping
// around) lists nothing; the disk is still a dynamic disk.
TEST(DynamicDisk, PrivateHeaderIsCheckedBeforeTheDatabaseIsRead) {
    std::string path = test::UnpackImage("ldm-dynamic");
    ASSERT_FALSE(path.empty());
    const auto bytes = test::ReadWhole(path);
    struct Case {
        const char* what;
        uint64_t diskStart, diskSize, configStart, configSize;
        size_t listed;
    };
    const Case cases[] = {
        {"as written", 63, kMbrConfigStart - 63, kMbrConfigStart, 2048, 2},
        {"config size not 2048", 63, kMbrConfigStart - 63, kMbrConfigStart, 2047, 0},
        {"logical disk size 0", 63, 0, kMbrConfigStart, 2048, 0},
        {"logical disk runs into the config", 63, kMbrConfigStart - 62, kMbrConfigStart, 2048, 0},
        {"start + size wraps around", 1, ~uint64_t(0), 2, 2048, 0},
    };
    for (const Case& c : cases) {
        auto copy = bytes;
        uint8_t* h = copy.data() + privhead::kMbrSector * 512;
        privhead::LogicalDiskStart::Put(h, c.diskStart);
        privhead::LogicalDiskSize::Put(h, c.diskSize);
        privhead::ConfigStart::Put(h, c.configStart);
        privhead::ConfigSize::Put(h, c.configSize);
        CPhysicalDisk disk;
        AttachBytes(disk, std::move(copy));
        Layout layout;
        auto parts = ListPartitions(disk, layout);
        EXPECT_EQ(layout, Layout::Ldm) << c.what;
        EXPECT_EQ(parts.size(), c.listed) << c.what;
        EXPECT_EQ(disk.AssembledVolumes().size(), c.listed) << c.what;
    }
    {
        // Without its private header the disk is still reported as dynamic, with nothing listed.
        auto copy = bytes;
        std::memset(copy.data() + privhead::kMbrSector * 512, 0, 512);
        CPhysicalDisk disk;
        AttachBytes(disk, std::move(copy));
        Layout layout;
        EXPECT_TRUE(ListPartitions(disk, layout).empty());
        EXPECT_EQ(layout, Layout::Ldm);
    }
}

// A GPT dynamic disk: the metadata partition holds the database (its private header in the last
// sector), volume pieces count from the data partition's first sector.
TEST(DynamicDisk, GptVolumesOfTheDataPartitionAreListedAndReadable) {
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
    EXPECT_EQ(parts[0].fsKind, FsKind::Ntfs);
    EXPECT_EQ(parts[1].startSector, 45056u);
    EXPECT_EQ(parts[1].length, 45056u + 81920 - 1);
    EXPECT_EQ(parts[1].fsKind, FsKind::Fat32);

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

// A striped volume reads its chunks from the columns in turn, as many whole rows as the shortest
// column holds; one read may cross several chunks.
TEST(DynamicDisk, StripedVolumeTakesChunksInTurn) {
    std::vector<uint8_t> bytes(64 * 512);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = uint8_t(i / 512);
    MemorySource base(std::move(bytes));
    LdmVolume v;
    v.layout = LdmLayout::Striped;
    v.columns = 2;
    v.stripeSectors = 2;
    v.extents = {{10, 8, 0, 0}, {40, 6, 0, 1}};
    ExtentSource striped(base, v, 512);
    ASSERT_EQ(striped.Size(), 12u * 512);
    std::vector<uint8_t> got(12 * 512);
    ASSERT_EQ(striped.ReadAt(got.data(), got.size(), 0), (long long)got.size());
    const uint8_t order[] = {10, 11, 40, 41, 12, 13, 42, 43, 14, 15, 44, 45};
    for (size_t s = 0; s < 12; ++s) EXPECT_EQ(got[s * 512 + 7], order[s]) << s;
    uint8_t tail[1024];
    EXPECT_EQ(striped.ReadAt(tail, sizeof tail, 12 * 512 - 512), 512); // short at the end
    EXPECT_EQ(tail[0], 45);
}

// Lying counts and sizes in the database: a VMDB whose record size is huge or tiny, a TOCBLOCK
// pointing past the area, fragment counts that never complete. Nothing is listed, nothing breaks.
TEST(DynamicDisk, DamagedDatabaseIsRejectedQuietly) {
    std::string path = test::UnpackImage("ldm-dynamic");
    ASSERT_FALSE(path.empty());
    auto bytes = test::ReadWhole(path);
    // The image keeps its TOCBLOCK in sector 1 of the area, the VMDB in sector 4 and 128-byte
    // record slots from sector 5 on.
    const size_t config = size_t(kMbrConfigStart) * 512;
    const size_t toc = config + 512, vmdbAt = config + 4 * 512, slots = config + 5 * 512;
    ASSERT_TRUE(tocblock::Magic::Is(bytes, tocblock::kMagic, toc));
    ASSERT_TRUE(vmdb::Magic::Is(bytes, vmdb::kMagic, vmdbAt));
    ASSERT_EQ(vmdb::VblkSize::Read(bytes, vmdbAt), 128u);
    auto mutate = [&](size_t at, std::initializer_list<uint8_t> v) {
        auto copy = bytes;
        std::copy(v.begin(), v.end(), copy.begin() + long(at));
        CPhysicalDisk d;
        AttachBytes(d, std::move(copy));
        return ReadLdmVolumes(d, kMbrConfigStart, 2048, 63, "");
    };
    EXPECT_EQ(mutate(config, {0}).size(), 2u); // sector 0 of the area is not read
    const size_t recordSize = vmdbAt + vmdb::VblkSize::kOffset;
    EXPECT_TRUE(mutate(recordSize, {0xFF, 0xFF, 0xFF, 0xFF}).empty());
    EXPECT_TRUE(mutate(recordSize, {0, 0, 0, 1}).empty());
    const size_t vmdbStart = toc + tocblock::kFirstBitmap + tocblock::bitmap::StartSector::kOffset;
    EXPECT_TRUE(mutate(vmdbStart, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}).empty());
    // Every record claims to be one fragment of 64: none completes.
    auto copy = bytes;
    for (size_t slot = 0; slot < 16; ++slot) vblk::FragmentCount::Put(copy.data() + slots + slot * 128, 64);
    CPhysicalDisk d;
    AttachBytes(d, std::move(copy));
    EXPECT_TRUE(ReadLdmVolumes(d, kMbrConfigStart, 2048, 63, "").empty());
}

} // namespace kestrin
