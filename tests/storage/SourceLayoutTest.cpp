#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "DiskBuilder.h"
#include "TestImages.h"
#include "storage/SourceLayout.h"

using namespace kestrin;
using namespace kestrin::test;

TEST(SourceLayout, VolumeImages) {
    struct Case {
        const char* what;
        std::function<void(uint8_t*)> boot;
        FsKind kind;
        PartitionFlag flag;
        uint64_t length;
    };
    const Case cases[] = {
        {"NTFS", [](uint8_t* s) { PutNtfsBoot(s, 399); }, FsKind::Ntfs, PartitionFlag::Validated, 400},
        {"exFAT", [](uint8_t* s) { PutExFatBoot(s, 9, 2); }, FsKind::ExFat, PartitionFlag::Validated, 400},
        {"exFAT with 8-sector clusters", [](uint8_t* s) { PutExFatBoot(s, 9, 3); }, FsKind::ExFat, PartitionFlag::TableOnly, 400},
        {"FAT32", [](uint8_t* s) { PutFat32Boot(s, 400); }, FsKind::Fat32, PartitionFlag::Validated, 400},
        {"FAT16 with a 32-bit total", [](uint8_t* s) { PutFat16Boot(s, 70000); }, FsKind::Fat16, PartitionFlag::Validated, 70000},
        // Too small for the strict FAT16 test, yet an image of a FAT16 volume: the length is its
        // own total and the geometry is filled all the same.
        {"small FAT16", [](uint8_t* s) { PutFat16Boot(s, 20000); }, FsKind::Fat16, PartitionFlag::TableOnly, 20000},
        {"small FAT16 with 224 root entries, no type text",
         [](uint8_t* s) {
             PutFat16Boot(s, 20000);
             PutLe16(s + 17, 224);
             std::memset(s + 54, ' ', 8);
         },
         FsKind::Fat16, PartitionFlag::TableOnly, 20000},
    };
    for (const Case& c : cases) {
        DiskBuilder d(400);
        c.boot(d.At(0));
        auto disk = d.Disk();
        Layout layout{};
        auto parts = ListPartitions(*disk, layout);
        EXPECT_EQ(layout, Layout::Volume) << c.what;
        ASSERT_EQ(parts.size(), 1u) << c.what;
        EXPECT_EQ(parts[0].startSector, 0u) << c.what;
        EXPECT_EQ(parts[0].fsKind, c.kind) << c.what;
        EXPECT_EQ(parts[0].partitionFlag, c.flag) << c.what;
        EXPECT_EQ(parts[0].length, c.length) << c.what;
        EXPECT_NE(parts[0].sectorsPerCluster, 0) << c.what;
    }
}

TEST(SourceLayout, BootCodeThatPassesLenientTestsIsStillATable) {
    // Boot code starting with a short jump and a NOP passes the bare exFAT test (three bytes
    // and two shifts); without the volume's name it must not hide the partition table.
    DiskBuilder d(400);
    uint8_t* s = d.At(0);
    s[0] = 0xEB;
    s[1] = 0x63;
    s[2] = 0x90;
    s[108] = 0x01;
    s[109] = 0x02;
    d.Entry(0, 0, 0x07, 100, 300);
    PutNtfsBoot(d.At(100), 299);
    auto disk = d.Disk();
    Layout layout{};
    auto parts = ListPartitions(*disk, layout);
    EXPECT_EQ(layout, Layout::Mbr);
    ASSERT_EQ(parts.size(), 1u);
    EXPECT_EQ(parts[0].startSector, 100u);
}

TEST(SourceLayout, NumberingAndRescuedGptEntries) {
    DiskBuilder d(600);
    PutGptHeader(d);
    PutGptEntry(d, 0, kGuidBasicData, 100, 199);
    PutExFatBoot(d.At(100), 9, 3); // fails the exFAT test's shift rule
    PutGptEntry(d, 1, kGuidBasicData, 200, 299);
    PutNtfsBoot(d.At(200), 99);
    PutGptEntry(d, 2, kGuidBasicData, 300, 399); // nothing there
    auto disk = d.Disk();
    disk->SecondPartitions().push_back(PartitionRecord{}); // stale: rebuilt
    Layout layout{};
    auto parts = ListPartitions(*disk, layout);
    EXPECT_EQ(layout, Layout::Gpt);
    ASSERT_EQ(parts.size(), 3u);
    EXPECT_EQ(parts[0].startSector, 200u); // table records first
    EXPECT_EQ(parts[0].fsKind, FsKind::Ntfs);
    EXPECT_EQ(parts[1].startSector, 100u); // then the second list
    EXPECT_EQ(parts[1].fsKind, FsKind::ExFat);
    EXPECT_EQ(parts[1].partitionFlag, PartitionFlag::TableOnly);
    EXPECT_EQ(parts[1].length, 199u);
    EXPECT_EQ(parts[1].bytesPerCluster, 4096u);
    EXPECT_EQ(parts[2].startSector, 300u); // then the range nothing was recognised in
    EXPECT_EQ(parts[2].fsKind, FsKind::None);
    // Listing again gives the same list.
    EXPECT_EQ(ListPartitions(*disk, layout).size(), 3u);
}

TEST(SourceLayout, EmptyAndBlankSources) {
    for (size_t sectors : {0, 1, 8}) {
        DiskBuilder d(sectors);
        auto disk = d.Disk();
        Layout layout = Layout::Mbr;
        EXPECT_TRUE(ListPartitions(*disk, layout).empty());
        EXPECT_EQ(layout, Layout::None);
    }
}

namespace {

struct MmlsRow {
    uint64_t start, end, length;
};

// The partition rows of an mmls listing (slots "000:000" or "000"; no Meta or unallocated rows).
std::vector<MmlsRow> ReadMmls(const std::string& path) {
    std::ifstream in(path);
    std::vector<MmlsRow> rows;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream ls(line);
        std::string index, slot;
        MmlsRow r;
        if (!(ls >> index >> slot >> r.start >> r.end >> r.length)) continue;
        if (index.size() != 4 || index.back() != ':' || slot == "Meta" || slot.find("---") == 0) continue;
        rows.push_back(r);
    }
    return rows;
}

} // namespace

// Committed copies of small disks: same starts as The Sleuth Kit's mmls (in the sector size the
// image declares), the length field as each table defines it (MBR: a count; GPT: the last sector).
TEST(SourceLayout, CommittedDisksAgreeWithMmls) {
    struct Case {
        const char* name;
        Layout layout;
        bool lengthIsLastSector;
        std::vector<std::pair<FsKind, PartitionFlag>> kindsAndFlags; // in listing order
        uint32_t sectorSize = 512;
    };
    const Case cases[] = {
        {"disk-mbr-small", Layout::Mbr, false, {{FsKind::Fat32, PartitionFlag::Validated}, {FsKind::Ntfs, PartitionFlag::Validated}, {FsKind::Fat16, PartitionFlag::TableOnly}}},
        {"disk-gpt-small", Layout::Gpt, true, {{FsKind::Ntfs, PartitionFlag::Validated}, {FsKind::Fat32, PartitionFlag::Validated}, {FsKind::ExFat, PartitionFlag::TableOnly}}},
        // Slot 1 empty: the three volumes behind it are all listed.
        {"disk-mbr-slot1-empty", Layout::Mbr, false, {{FsKind::Fat16, PartitionFlag::TableOnly}, {FsKind::Ntfs, PartitionFlag::Validated}, {FsKind::Fat32, PartitionFlag::Validated}}},
        // 4 KiB sectors; the small FAT16 passes the bare NTFS test, and is still FAT16.
        {"disk-gpt-4k", Layout::Gpt, true, {{FsKind::Ntfs, PartitionFlag::Validated}, {FsKind::Fat16, PartitionFlag::TableOnly}, {FsKind::ExFat, PartitionFlag::TableOnly}}, 4096},
    };
    for (const Case& c : cases) {
        std::string image = UnpackImage(c.name);
        ASSERT_FALSE(image.empty()) << c.name;
        auto rows = ReadMmls(std::string(KESTRIN_SOURCE_DIR) + "/tests/images/" + c.name + ".mmls.txt");
        ASSERT_EQ(rows.size(), 3u) << c.name;
        CPhysicalDisk disk;
        ASSERT_TRUE(disk.AttachImageFile(image));
        EXPECT_EQ(disk.GetSectorSize(), c.sectorSize) << c.name;
        Layout layout{};
        auto parts = ListPartitions(disk, layout);
        EXPECT_EQ(layout, c.layout) << c.name;
        ASSERT_EQ(parts.size(), rows.size()) << c.name;
        for (size_t i = 0; i < rows.size(); ++i) {
            auto it = std::find_if(parts.begin(), parts.end(), [&](auto& p) { return p.startSector == rows[i].start; });
            ASSERT_NE(it, parts.end()) << c.name << " start " << rows[i].start;
            EXPECT_EQ(it->length, c.lengthIsLastSector ? rows[i].end : rows[i].length) << c.name;
        }
        for (size_t i = 0; i < parts.size(); ++i) {
            EXPECT_EQ(parts[i].fsKind, c.kindsAndFlags[i].first) << c.name << " #" << i + 1;
            EXPECT_EQ(parts[i].partitionFlag, c.kindsAndFlags[i].second) << c.name << " #" << i + 1;
        }
    }
}

// Disks that also hold other systems' partitions: every partition mmls lists is listed, the file
// systems read here first with their usual numbers, the others behind them with their table type.
TEST(SourceLayout, OtherSystemsPartitionsAreListed) {
    struct Case {
        const char* name;
        Layout layout;
        std::vector<std::pair<FsKind, TableType>> listed; // in listing order
    };
    const Case cases[] = {
        {"disk-gpt-other", Layout::Gpt,
         {{FsKind::Fat16, TableType::Data}, {FsKind::None, TableType::Linux}, {FsKind::None, TableType::LinuxSwap},
          {FsKind::None, TableType::LinuxLvm}, {FsKind::Fat12, TableType::EfiSystem}, // its FAT12 volume is read
          {FsKind::None, TableType::AppleHfs}, {FsKind::None, TableType::AppleApfs}}},
        // The encrypted volume sits in an NTFS slot of the primary table; the EFI partition is FAT16.
        {"disk-mbr-other", Layout::Mbr,
         {{FsKind::Fat16, TableType::Data}, {FsKind::None, TableType::BitLocker}, {FsKind::None, TableType::Linux},
          {FsKind::None, TableType::LinuxSwap}, {FsKind::None, TableType::LinuxLvm}, {FsKind::Fat16, TableType::EfiSystem},
          {FsKind::None, TableType::AppleHfs}}},
    };
    for (const Case& c : cases) {
        std::string image = UnpackImage(c.name);
        ASSERT_FALSE(image.empty()) << c.name;
        auto rows = ReadMmls(std::string(KESTRIN_SOURCE_DIR) + "/tests/images/" + c.name + ".mmls.txt");
        CPhysicalDisk disk;
        ASSERT_TRUE(disk.AttachImageFile(image));
        Layout layout{};
        auto parts = ListPartitions(disk, layout);
        EXPECT_EQ(layout, c.layout) << c.name;
        ASSERT_EQ(parts.size(), rows.size()) << c.name;
        ASSERT_EQ(parts.size(), c.listed.size()) << c.name;
        for (const auto& row : rows) {
            auto it = std::find_if(parts.begin(), parts.end(), [&](auto& p) { return p.startSector == row.start; });
            ASSERT_NE(it, parts.end()) << c.name << " start " << row.start;
            EXPECT_EQ(it->length, c.layout == Layout::Gpt ? row.end : row.length) << c.name << " start " << row.start;
        }
        for (size_t i = 0; i < parts.size(); ++i) {
            EXPECT_EQ(parts[i].fsKind, c.listed[i].first) << c.name << " #" << i + 1;
            EXPECT_EQ(parts[i].tableType, c.listed[i].second) << c.name << " #" << i + 1;
        }
    }
}

// A volume image with 4 KiB sectors is read in them; a forced size wins over the declared one.
TEST(SourceLayout, FourKibVolumeImage) {
    std::string image = UnpackImage("fat32-4k");
    ASSERT_FALSE(image.empty());
    CPhysicalDisk disk;
    ASSERT_TRUE(disk.AttachImageFile(image));
    EXPECT_EQ(disk.GetSectorSize(), 4096u);
    Layout layout{};
    auto parts = ListPartitions(disk, layout);
    EXPECT_EQ(layout, Layout::Volume);
    ASSERT_EQ(parts.size(), 1u);
    EXPECT_EQ(parts[0].fsKind, FsKind::Fat32);
    EXPECT_EQ(parts[0].bytesPerSector, 4096);
    EXPECT_EQ(parts[0].length, 66560u);

    CPhysicalDisk forced;
    ASSERT_TRUE(forced.AttachImageFile(image, 512));
    EXPECT_EQ(forced.GetSectorSize(), 512u);
    EXPECT_EQ(forced.GetSectorCount(), 66560u * 8);
}
