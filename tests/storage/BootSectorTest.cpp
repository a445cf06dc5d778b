#include <gtest/gtest.h>

#include <array>
#include <functional>

#include "DiskBuilder.h"
#include "storage/BootSector.h"

using namespace kestrin;
using namespace kestrin::test;

namespace {

using Sector = std::array<uint8_t, 512>;
using Mutation = std::function<void(uint8_t*)>;

struct Case {
    const char* what;
    Mutation mutate;
    bool passes;
};

// Runs each mutation on a fresh copy of a valid sector and checks the test's verdict.
void CheckCases(const char* fsName, void (*make)(uint8_t*), bool (*test)(CStorageMedia&, std::span<const uint8_t>),
                const std::vector<Case>& cases) {
    auto disk = DiskBuilder(1).Disk();
    for (const Case& c : cases) {
        Sector s{};
        make(s.data());
        c.mutate(s.data());
        EXPECT_EQ(test(*disk, s), c.passes) << fsName << ": " << c.what;
    }
}

} // namespace

TEST(BootSector, Fat32Rules) {
    CheckCases("FAT32", [](uint8_t* s) { PutFat32Boot(s, 81920); }, IsFat32BootSector,
               {
                   {"valid", [](uint8_t*) {}, true},
                   {"bytes per sector 0 is accepted", [](uint8_t* s) { PutLe16(s + 11, 0); }, true},
                   {"1024", [](uint8_t* s) { PutLe16(s + 11, 1024); }, true},
                   {"4096", [](uint8_t* s) { PutLe16(s + 11, 4096); }, true},
                   {"1536: odd multiple of 512", [](uint8_t* s) { PutLe16(s + 11, 1536); }, false},
                   {"520", [](uint8_t* s) { PutLe16(s + 11, 520); }, false},
                   {"one FAT", [](uint8_t* s) { s[16] = 1; }, false},
                   {"3 sectors per cluster", [](uint8_t* s) { s[13] = 3; }, false},
                   {"0 sectors per cluster", [](uint8_t* s) { s[13] = 0; }, false},
                   {"128 sectors per cluster", [](uint8_t* s) { s[13] = 128; }, true},
                   {"media 0xF0", [](uint8_t* s) { s[21] = 0xF0; }, true},
                   {"media 0xF1", [](uint8_t* s) { s[21] = 0xF1; }, false},
                   {"root cluster 3", [](uint8_t* s) { PutLe32(s + 44, 3); }, false},
                   {"backup boot 0", [](uint8_t* s) { PutLe16(s + 50, 0); }, false},
                   {"FSInfo 2", [](uint8_t* s) { PutLe16(s + 48, 2); }, false},
                   {"signature byte order", [](uint8_t* s) { PutBe16(s + 510, 0xAA55); }, false},
               });
}

TEST(BootSector, Fat16Rules) {
    CheckCases("FAT16", [](uint8_t* s) { PutFat16Boot(s, 200000); }, IsFat16BootSector,
               {
                   {"valid, 32-bit total above 65,535", [](uint8_t*) {}, true},
                   {"32 MB or less: 16-bit total", [](uint8_t* s) { PutLe32(s + 32, 0); PutLe16(s + 19, 60000); }, false},
                   {"32-bit total below 65,536", [](uint8_t* s) { PutLe32(s + 32, 65535); }, false},
                   {"type text blank at 57..60", [](uint8_t* s) { std::memset(s + 57, 0, 4); }, false},
                   {"224 root entries", [](uint8_t* s) { PutLe16(s + 17, 224); }, false},
                   {"256 root entries", [](uint8_t* s) { PutLe16(s + 17, 256); }, false},
                   {"no reserved sectors", [](uint8_t* s) { PutLe16(s + 14, 0); }, false},
                   {"bytes per sector 520", [](uint8_t* s) { PutLe16(s + 11, 520); }, false},
                   {"one FAT", [](uint8_t* s) { s[16] = 1; }, false},
                   {"6 sectors per cluster", [](uint8_t* s) { s[13] = 6; }, false},
                   {"media 0x00", [](uint8_t* s) { s[21] = 0; }, false},
                   {"no signature", [](uint8_t* s) { PutLe16(s + 510, 0); }, false},
               });
}

TEST(BootSector, NtfsRules) {
    CheckCases("NTFS", [](uint8_t* s) { PutNtfsBoot(s, 100000); }, IsNtfsBootSector,
               {
                   {"valid", [](uint8_t*) {}, true},
                   {"no signature needed", [](uint8_t* s) { PutLe16(s + 510, 0); }, true},
                   {"byte 0 zero", [](uint8_t* s) { s[0] = 0; }, false},
                   {"byte 1 zero", [](uint8_t* s) { s[1] = 0; }, false},
                   {"byte 2 not 0x90", [](uint8_t* s) { s[2] = 0x91; }, false},
                   {"bytes 32..35 not zero", [](uint8_t* s) { s[34] = 1; }, false},
                   {"byte 36 not 0x80", [](uint8_t* s) { s[36] = 0x81; }, false},
                   {"byte 37 not 0", [](uint8_t* s) { s[37] = 0x80; }, false},
                   {"odd bytes per sector", [](uint8_t* s) { PutLe16(s + 11, 513); }, false},
                   {"3 sectors per cluster", [](uint8_t* s) { s[13] = 3; }, false},
                   {"0 sectors per cluster", [](uint8_t* s) { s[13] = 0; }, false},
                   {"MFT record -11 (0xF5, odd)", [](uint8_t* s) { s[64] = 0xF5; }, false},
                   {"index record 2 clusters", [](uint8_t* s) { s[68] = 2; }, true},
                   {"index record 3 clusters", [](uint8_t* s) { s[68] = 3; }, false},
                   {"MFT cluster 0", [](uint8_t* s) { PutLe64(s + 48, 0); }, false},
                   {"mirror all ones", [](uint8_t* s) { PutLe64(s + 56, ~uint64_t(0)); }, false},
                   {"total sectors 0", [](uint8_t* s) { PutLe64(s + 40, 0); }, false},
               });
}

TEST(BootSector, ExFatRules) {
    // The cluster shift is judged like a count: 1 and even shifts pass, odd shifts above 1 fail.
    std::vector<Case> cases = {
        {"byte 0 zero", [](uint8_t* s) { s[0] = 0; }, false},
        {"byte 2 not 0x90", [](uint8_t* s) { s[2] = 0; }, false},
        {"sector shift 0", [](uint8_t* s) { s[108] = 0; }, false},
    };
    const bool shiftPasses[] = {false, true, true, false, true, false, true, false, true};
    for (uint8_t shift = 0; shift <= 8; ++shift) {
        cases.push_back({"cluster shift", [shift](uint8_t* s) { s[109] = shift; }, shiftPasses[shift]});
    }
    CheckCases("exFAT", [](uint8_t* s) { PutExFatBoot(s); }, IsExFatBootSector, cases);
}

TEST(BootSector, ShortSpansFailWithoutReadingPastThem) {
    // Each test needs its last field inside the span: NTFS byte 79, exFAT byte 109, FAT the
    // signature at 510.
    struct Case {
        void (*make)(uint8_t*);
        bool (*test)(CStorageMedia&, std::span<const uint8_t>);
        size_t needed;
    };
    const Case cases[] = {
        {[](uint8_t* s) { PutNtfsBoot(s, 1000); }, IsNtfsBootSector, 80},
        {[](uint8_t* s) { PutExFatBoot(s); }, IsExFatBootSector, 110},
        {[](uint8_t* s) { PutFat32Boot(s, 1000); }, IsFat32BootSector, 512},
        {[](uint8_t* s) { PutFat16Boot(s, 70000); }, IsFat16BootSector, 512},
    };
    auto disk = DiskBuilder(1).Disk();
    for (const Case& c : cases) {
        // On the heap at its exact length, so ASan catches a read past the span.
        for (size_t len : {size_t(0), size_t(2), c.needed - 1, c.needed}) {
            Sector full{};
            c.make(full.data());
            std::vector<uint8_t> part(full.begin(), full.begin() + len);
            EXPECT_EQ(c.test(*disk, part), len >= c.needed) << c.needed << " / " << len;
        }
    }
}

TEST(BootSector, FatFills) {
    Sector s{};
    PutFat16Boot(s.data(), 200000);
    PartitionRecord r;
    r.length = 999; // the table's value, replaced by the boot sector's total
    FillFat16Record(s, r);
    EXPECT_EQ(r.length, 200000u);
    EXPECT_EQ(r.sectorsPerCluster, 4);
    EXPECT_EQ(r.fatStart, 4u);
    EXPECT_EQ(r.secondArea, 68u);
    EXPECT_EQ(r.thirdArea, 132u);
    EXPECT_EQ(r.fatSize, 64u);
    // Root directory sectors are not subtracted: (200000 - (4 + 2 * 64)) / 4.
    EXPECT_EQ(r.clusterCount, 49967u);
    EXPECT_EQ(r.bytesPerSector, 512);
    EXPECT_EQ(r.rootEntries, 512);
    EXPECT_EQ(r.bytesPerCluster, 0u);

    PutLe16(s.data() + 19, 30000); // a 16-bit total wins over the 32-bit one
    FillFat16Record(s, r);
    EXPECT_EQ(r.length, 30000u);

    Sector f{};
    PutFat32Boot(f.data(), 81920);
    PartitionRecord g;
    g.length = 153599; // a GPT record's last sector enters the count as it is
    FillFat32Record(f, g);
    EXPECT_EQ(g.length, 153599u);
    EXPECT_EQ(g.fatSize, 100u);
    EXPECT_EQ(g.secondArea, 132u);
    EXPECT_EQ(g.thirdArea, 232u);
    EXPECT_EQ(g.clusterCount, (153599u - 232u) / 8);

    g.length = 10; // shorter than its own metadata: no clusters rather than a wrapped count
    FillFat32Record(f, g);
    EXPECT_EQ(g.clusterCount, 0u);
}

TEST(BootSector, NtfsFill) {
    auto disk = DiskBuilder(1).Disk();
    Sector s{};
    PutNtfsBoot(s.data(), 100000, 4, 0x0102030405060708);
    PartitionRecord r;
    FillNtfsRecord(*disk, s, r);
    EXPECT_EQ(r.volumeSerial, 0x0102030405060708u);
    EXPECT_EQ(r.bytesPerSector, 512);
    EXPECT_EQ(r.sectorsPerCluster, 8);
    EXPECT_EQ(r.bytesPerCluster, 4096u);
    EXPECT_EQ(r.mftRecordSize, 1024); // -10: 2^10 bytes
    EXPECT_EQ(r.sectorsPerMftRecord, 2);
    EXPECT_EQ(r.sectorsPerIndexRecord, 8); // 1 cluster of 8 sectors
    EXPECT_EQ(r.indexRecordSize, 4096u);
    EXPECT_EQ(r.secondArea, 4u);
    EXPECT_EQ(r.thirdArea, 100000u / 16);

    // The boot sector's own size wins over the media's when it is a multiple of 512...
    PutLe16(s.data() + 11, 4096);
    FillNtfsRecord(*disk, s, r);
    EXPECT_EQ(r.bytesPerSector, 4096);
    EXPECT_EQ(r.sectorsPerMftRecord, 0); // 1,024 / 4,096

    // ...and one that is 0 or not a multiple of 512 gives way to the media's.
    disk->SetSectorSize(4096);
    PutLe16(s.data() + 11, 0);
    s[68] = 0xF4; // -12: 4,096-byte index records
    FillNtfsRecord(*disk, s, r);
    EXPECT_EQ(r.bytesPerSector, 4096);
    EXPECT_EQ(r.bytesPerCluster, 8u * 4096);
    EXPECT_EQ(r.indexRecordSize, 4096u);
    EXPECT_EQ(r.sectorsPerIndexRecord, 1);

    // Absurd exponents give unusable sizes, not undefined shifts.
    s[64] = 0x80;
    s[68] = 0x80;
    FillNtfsRecord(*disk, s, r);
    EXPECT_EQ(r.mftRecordSize, 0);
    EXPECT_EQ(r.indexRecordSize, 0u);
}

TEST(BootSector, ExFatFill) {
    auto disk = DiskBuilder(1).Disk();
    Sector s{};
    PutExFatBoot(s.data(), 9, 3);
    PartitionRecord r;
    FillExFatRecord(*disk, s, r);
    EXPECT_EQ(r.volumeSerial, 0xCAFEF00Du);
    EXPECT_EQ(r.bytesPerSector, 512);
    EXPECT_EQ(r.sectorsPerCluster, 8);
    EXPECT_EQ(r.bytesPerCluster, 4096u);
    EXPECT_EQ(r.clusterCount, 3584u);
    EXPECT_EQ(r.thirdArea, (5u - 2) * 8 + 4096); // root directory sector
    EXPECT_EQ(r.fatStart, 2048u);
    EXPECT_EQ(r.fatSize, 32u);

    s[108] = 0; // no sector shift: the media's sector size
    disk->SetSectorSize(4096);
    FillExFatRecord(*disk, s, r);
    EXPECT_EQ(r.bytesPerSector, 4096);
    EXPECT_EQ(r.bytesPerCluster, 8u * 4096);
}
