#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "DiskBuilder.h"
#include "storage/PartitionTable.h"
#include "storage/SourceLayout.h"

using namespace kestrin;
using namespace kestrin::test;

namespace {

// The records behind the placeholder.
std::vector<PartitionRecord> Records(CPhysicalDisk& disk) {
    auto& l = disk.Partitions();
    return l.size() > 1 ? std::vector<PartitionRecord>(l.begin() + 1, l.end()) : std::vector<PartitionRecord>{};
}

} // namespace

// Extended partition at 1,000; its EBR links to 500 (relative to 1,000, so 1,500), that one to
// 700 (1,700); logicals sit at 63 relative to their own EBR.
TEST(PartitionTable, MbrAndExtendedChain) {
    DiskBuilder d(2100);
    d.Entry(0, 0, 0x06, 63, 900); // FAT16 too small for its test: table only
    PutFat16Boot(d.At(63), 900);
    d.Entry(0, 1, 0x0F, 1000, 1100);
    d.Entry(1000, 0, 0x07, 63, 400);
    PutNtfsBoot(d.At(1063), 399);
    d.Entry(1000, 1, 0x05, 500, 600);
    d.Entry(1500, 0, 0x0C, 63, 500);
    PutFat32Boot(d.At(1563), 500);
    d.Entry(1500, 1, 0x83, 600, 10); // Linux: ignored
    d.Entry(1500, 2, 0x05, 700, 300); // links stay relative to the first extended partition: 1,700
    d.Entry(1700, 0, 0x0E, 63, 300);
    PutFat16Boot(d.At(1763), 70000);

    auto disk = d.Disk();
    disk->Partitions()[0].startSector = 77; // a used head is zeroed, stale records dropped
    disk->Partitions().push_back(PartitionRecord{});
    Layout layout{};
    EXPECT_TRUE(ReadPartitionTable(*disk, &layout));
    EXPECT_EQ(layout, Layout::Mbr);
    EXPECT_EQ(disk->Partitions()[0].startSector, 0u);

    auto r = Records(*disk);
    ASSERT_EQ(r.size(), 4u);
    EXPECT_EQ(r[0].startSector, 63u);
    EXPECT_EQ(r[0].length, 900u);
    EXPECT_EQ(r[0].fsKind, FsKind::Fat16);
    EXPECT_EQ(r[0].partitionFlag, PartitionFlag::TableOnly);
    EXPECT_EQ(r[0].sectorsPerCluster, 0); // table-only records carry no geometry

    EXPECT_EQ(r[1].startSector, 1063u);
    EXPECT_EQ(r[1].length, 400u);
    EXPECT_EQ(r[1].fsKind, FsKind::Ntfs);
    EXPECT_EQ(r[1].partitionFlag, PartitionFlag::Validated);
    EXPECT_EQ(r[1].bytesPerCluster, 4096u);

    EXPECT_EQ(r[2].startSector, 1563u);
    EXPECT_EQ(r[2].length, 500u);
    EXPECT_EQ(r[2].fsKind, FsKind::Fat32);
    EXPECT_EQ(r[2].partitionFlag, PartitionFlag::Validated);
    EXPECT_EQ(r[2].fatSize, 100u);

    EXPECT_EQ(r[3].startSector, 1763u);
    EXPECT_EQ(r[3].fsKind, FsKind::Fat16);
    EXPECT_EQ(r[3].partitionFlag, PartitionFlag::Validated);
    EXPECT_EQ(r[3].length, 70000u); // the boot sector's total, not the table's 300
}

TEST(PartitionTable, MbrQuirks) {
    struct Case {
        const char* what;
        std::function<void(DiskBuilder&)> build;
        size_t records;
        FsKind kind;
        PartitionFlag flag;
        uint64_t length;
    };
    const std::vector<Case> cases = {
        {"an empty first slot hides nothing behind it",
         [](DiskBuilder& d) {
             d.Entry(0, 2, 0x07, 100, 50);
             PutNtfsBoot(d.At(100), 49);
         },
         1, FsKind::Ntfs, PartitionFlag::Validated, 50},
        {"all four slots empty",
         [](DiskBuilder& d) {
             d.Entry(0, 0, 0x00, 100, 50);
             PutNtfsBoot(d.At(100), 49);
         },
         0, FsKind::None, PartitionFlag::None, 0},
        {"no 0xAA55 signature",
         [](DiskBuilder& d) {
             d.Entry(0, 0, 0x07, 100, 50);
             PutNtfsBoot(d.At(100), 49);
             PutLe16(d.At(0) + 510, 0x55AA);
         },
         0, FsKind::None, PartitionFlag::None, 0},
        {"exFAT in an 0x07 slot is NTFS, table only",
         [](DiskBuilder& d) {
             d.Entry(0, 0, 0x07, 100, 50);
             PutExFatBoot(d.At(100));
         },
         1, FsKind::Ntfs, PartitionFlag::TableOnly, 50},
        {"validated FAT16 takes the boot sector's total",
         [](DiskBuilder& d) {
             d.Entry(0, 0, 0x0E, 100, 50);
             PutFat16Boot(d.At(100), 70000);
         },
         1, FsKind::Fat16, PartitionFlag::Validated, 70000},
        {"FAT32 length stays the table's",
         [](DiskBuilder& d) {
             d.Entry(0, 0, 0x0B, 100, 150);
             PutFat32Boot(d.At(100), 70000);
         },
         1, FsKind::Fat32, PartitionFlag::Validated, 150},
        {"unknown types are skipped",
         [](DiskBuilder& d) {
             d.Entry(0, 0, 0x83, 100, 50);
             d.Entry(0, 1, 0xEE, 100, 50); // protective type only counts in the first slot
             d.Entry(0, 2, 0x07, 150, 40);
         },
         1, FsKind::Ntfs, PartitionFlag::TableOnly, 40},
        {"partition beyond the disk: table only",
         [](DiskBuilder& d) { d.Entry(0, 0, 0x07, 0xFFFFFF00u, 0xFFu); },
         1, FsKind::Ntfs, PartitionFlag::TableOnly, 0xFF},
    };
    for (const Case& c : cases) {
        DiskBuilder d(200);
        c.build(d);
        auto disk = d.Disk();
        ReadPartitionTable(*disk);
        auto r = Records(*disk);
        ASSERT_EQ(r.size(), c.records) << c.what;
        if (c.records == 0) continue;
        EXPECT_EQ(r[0].fsKind, c.kind) << c.what;
        EXPECT_EQ(r[0].partitionFlag, c.flag) << c.what;
        EXPECT_EQ(r[0].length, c.length) << c.what;
    }
}

TEST(PartitionTable, UnreadableBootSectorGivesTableOnlyRecord) {
    DiskBuilder d(200);
    d.Entry(0, 0, 0x07, 100, 50);
    PutNtfsBoot(d.At(100), 49);
    auto disk = std::make_unique<CPhysicalDisk>();
    auto src = std::make_unique<MemorySource>(d.bytes);
    src->FailReadsAt(100 * kSector, kSector);
    disk->Attach(std::move(src));
    disk->SetSectorSize(kSector);
    disk->SetSectorCount(200);
    ReadPartitionTable(*disk);
    auto r = Records(*disk);
    ASSERT_EQ(r.size(), 1u);
    EXPECT_EQ(r[0].partitionFlag, PartitionFlag::TableOnly);
}

TEST(PartitionTable, EbrChainsThatLoopOrRunAwayEnd) {
    {
        // Two EBRs linking to each other: each logical partition is listed once.
        DiskBuilder d(300);
        d.Entry(0, 0, 0x05, 100, 200);
        d.Entry(100, 0, 0x07, 10, 20);
        d.Entry(100, 1, 0x05, 50, 50); // 150
        d.Entry(150, 0, 0x07, 10, 20);
        d.Entry(150, 1, 0x05, 0, 50); // back to 100
        auto disk = d.Disk();
        ReadPartitionTable(*disk);
        auto r = Records(*disk);
        ASSERT_EQ(r.size(), 2u);
        EXPECT_EQ(r[0].startSector, 110u);
        EXPECT_EQ(r[1].startSector, 160u);
    }
    {
        // A link past the end of the disk ends the chain.
        DiskBuilder d(300);
        d.Entry(0, 0, 0x0F, 100, 200);
        d.Entry(100, 0, 0x07, 10, 20);
        d.Entry(100, 1, 0x05, 0xFFFFFF00u, 50);
        auto disk = d.Disk();
        ReadPartitionTable(*disk);
        EXPECT_EQ(Records(*disk).size(), 1u);
    }
    {
        // A chain through 3,000 distinct EBRs is cut off well before its end.
        const uint32_t links = 3000;
        DiskBuilder d(links + 2);
        d.Entry(0, 0, 0x05, 1, links);
        for (uint32_t i = 1; i <= links; ++i) {
            d.Entry(i, 0, 0x07, 0, 1);
            d.Entry(i, 1, 0x05, i, 1); // next EBR at base 1 + i
        }
        auto disk = d.Disk();
        ReadPartitionTable(*disk);
        EXPECT_GT(Records(*disk).size(), 100u);
        EXPECT_LT(Records(*disk).size(), size_t(links));
    }
}

TEST(PartitionTable, GptEntries) {
    DiskBuilder d(600);
    PutGptHeader(d);
    PutGptEntry(d, 0, kGuidBasicData, 100, 199);
    PutNtfsBoot(d.At(100), 99);
    PutGptEntry(d, 1, kGuidLinuxData, 200, 249);
    PutNtfsBoot(d.At(200), 49); // wrong type GUID: ignored although NTFS
    PutGptEntry(d, 2, kGuidBasicData, 250, 299);
    PutExFatBoot(d.At(250), 9, 2);
    PutGptEntry(d, 3, kGuidBasicData, 300, 449);
    PutFat32Boot(d.At(300), 150);
    PutGptEntry(d, 4, kGuidBasicData, 450, 499); // no file system: no record
    PutGptEntry(d, 5, kGuidBasicData, 500, 599);
    PutFat16Boot(d.At(500), 70000);

    auto disk = d.Disk();
    Layout layout{};
    std::vector<GptUnrecognisedEntry> missed;
    ReadPartitionTable(*disk, &layout, &missed);
    EXPECT_EQ(layout, Layout::Gpt);
    auto r = Records(*disk);
    ASSERT_EQ(r.size(), 4u);
    const FsKind kinds[] = {FsKind::Ntfs, FsKind::ExFat, FsKind::Fat32, FsKind::Fat16};
    const uint64_t starts[] = {100, 250, 300, 500};
    const uint64_t lengths[] = {199, 299, 449, 70000}; // last sectors; FAT16 takes its own total
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(r[i].fsKind, kinds[i]) << i;
        EXPECT_EQ(r[i].startSector, starts[i]) << i;
        EXPECT_EQ(r[i].length, lengths[i]) << i;
        EXPECT_EQ(r[i].partitionFlag, PartitionFlag::Validated) << i;
    }
    EXPECT_EQ(r[1].bytesPerCluster, 2048u);
    EXPECT_EQ(r[2].clusterCount, (449u - 232u) / 8); // counted from the last sector
    ASSERT_EQ(missed.size(), 1u);
    EXPECT_EQ(missed[0].firstSector, 450u);
    EXPECT_EQ(missed[0].lastSector, 499u);
}

TEST(PartitionTable, GptHeaderAbuse) {
    struct Case {
        const char* what;
        uint32_t count, size;
        uint64_t arrayStart;
        size_t records;
    };
    const Case cases[] = {
        {"entry size 0", 128, 0, 2, 0},
        {"entry size not a multiple of 128", 128, 100, 2, 0},
        {"count x size beyond 32 bits", 0xFFFFFFFFu, 0x80000000u, 2, 0},
        {"huge count of normal entries", 0xFFFFFFFFu, 128, 2, 1},
        {"array past the disk", 128, 128, 1u << 30, 0},
        {"array at the last sector", 128, 128, 299, 0},
        {"256-byte entries", 4, 256, 2, 1},
    };
    for (const Case& c : cases) {
        DiskBuilder d(300);
        PutGptHeader(d, c.count, c.size, c.arrayStart);
        if (c.arrayStart == 2) PutGptEntry(d, 0, kGuidBasicData, 100, 199, c.size ? c.size : 128);
        PutNtfsBoot(d.At(100), 99);
        auto disk = d.Disk();
        ReadPartitionTable(*disk);
        EXPECT_EQ(Records(*disk).size(), c.records) << c.what;
    }
    {
        DiskBuilder d(300);
        PutGptHeader(d);
        std::memcpy(d.At(1), "EFI PARX", 8);
        PutGptEntry(d, 0, kGuidBasicData, 100, 199);
        PutNtfsBoot(d.At(100), 99);
        auto disk = d.Disk();
        Layout layout{};
        ReadPartitionTable(*disk, &layout);
        EXPECT_EQ(Records(*disk).size(), 0u);
        EXPECT_EQ(layout, Layout::Gpt);
    }
}

// A dynamic-disk data entry is only followed when the metadata entry came first; otherwise the
// walk ends there and the entries behind it are not examined.
TEST(PartitionTable, GptDynamicDiskOrder) {
    for (bool metadataFirst : {true, false}) {
        DiskBuilder d(3000);
        PutGptHeader(d);
        int meta = metadataFirst ? 0 : 1, data = metadataFirst ? 1 : 0;
        PutGptEntry(d, meta, kGuidLdmMetadata, 100, 2147);
        PutGptEntry(d, data, kGuidLdmData, 2148, 2899);
        PutGptEntry(d, 2, kGuidBasicData, 2900, 2999);
        PutNtfsBoot(d.At(2900), 99);
        auto disk = d.Disk();
        ReadPartitionTable(*disk);
        // The metadata area holds no database: nothing comes of the dynamic disk itself.
        EXPECT_TRUE(disk->SecondPartitions().empty());
        EXPECT_EQ(Records(*disk).size(), metadataFirst ? 1u : 0u) << metadataFirst;
    }
}

TEST(PartitionTable, DumpPartitionList) {
    CPhysicalDisk disk;
    PartitionRecord ex;
    ex.fsKind = FsKind::ExFat;
    ex.startSector = 2048;
    ex.length = 4095;
    ex.bytesPerSector = 512;
    ex.sectorsPerCluster = 8;
    ex.bytesPerCluster = 4096;
    disk.Partitions().push_back(ex);
    PartitionRecord fat;
    fat.fsKind = FsKind::Fat16;
    fat.startSector = 63;
    fat.length = 100;
    disk.Partitions().push_back(fat);
    std::FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    DumpPartitionList(disk, f);
    std::rewind(f);
    std::string out;
    char buf[256];
    while (size_t n = std::fread(buf, 1, sizeof buf, f)) out.append(buf, n);
    std::fclose(f);
    EXPECT_EQ(out, "start sector:0\nEnd sector:0\nBPS:0\nSPC:0\n"
                   "ExFAT partition==>\nNTFS partition==>\nstart sector:2048\nEnd sector:4095\nBPS:512\nSPC:4096\n"
                   "FAT16 partition==>\nstart sector:63\nEnd sector:100\nBPS:0\nSPC:0\n");
}
