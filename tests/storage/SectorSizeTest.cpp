// The sector size an image declares through its own bytes.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "DiskBuilder.h"
#include "storage/SectorSize.h"

using namespace kestrin;
using namespace kestrin::test;

namespace {

uint32_t Declared(const std::vector<uint8_t>& bytes) {
    MemorySource src(bytes);
    return DeclaredSectorSize(src);
}

} // namespace

TEST(SectorSize, GptHeaderPlaceDecides) {
    for (uint32_t size : {512u, 1024u, 2048u, 4096u}) {
        std::vector<uint8_t> disk(64 * 1024);
        // A protective MBR in front, as partitioning tools write it.
        disk[446 + 4] = 0xEE;
        PutLe16(disk.data() + 510, 0xAA55);
        std::memcpy(disk.data() + size, "EFI PART", 8);
        EXPECT_EQ(Declared(disk), size) << size;
    }
}

TEST(SectorSize, VolumeBootSectorStatesItsOwn) {
    std::vector<uint8_t> v(64 * 1024);
    PutFat32Boot(v.data(), 1000);
    PutLe16(v.data() + 11, 4096);
    EXPECT_EQ(Declared(v), 4096u);
    PutLe16(v.data() + 11, 768); // not a size sources are read with
    EXPECT_EQ(Declared(v), 0u);

    std::fill(v.begin(), v.end(), 0);
    PutNtfsBoot(v.data(), 1000);
    PutLe16(v.data() + 11, 2048);
    EXPECT_EQ(Declared(v), 2048u);

    std::fill(v.begin(), v.end(), 0);
    PutExFatBoot(v.data(), 12, 0);
    EXPECT_EQ(Declared(v), 4096u);
}

TEST(SectorSize, MbrEntryPointsAtABootSectorOfItsUnit) {
    // Entry start 64: byte 32,768 in 512-byte sectors, byte 262,144 in 4 KiB sectors.
    std::vector<uint8_t> disk(300 * 1024);
    DiskBuilder table(1);
    table.Entry(0, 1, 0x0C, 64, 1000); // slot 1 empty
    std::memcpy(disk.data(), table.bytes.data(), 512);
    PutFat32Boot(disk.data() + 64 * 4096, 1000);
    PutLe16(disk.data() + 64 * 4096 + 11, 4096);
    EXPECT_EQ(Declared(disk), 4096u);

    // A boot sector where 512-byte sectors put it wins, whatever it declares.
    PutFat32Boot(disk.data() + 64 * 512, 1000);
    PutLe16(disk.data() + 64 * 512 + 11, 4096);
    EXPECT_EQ(Declared(disk), 0u);
}

TEST(SectorSize, NothingDeclared) {
    EXPECT_EQ(Declared({}), 0u);
    EXPECT_EQ(Declared(std::vector<uint8_t>(100, 0xFF)), 0u);
    // MBR boot code with a signature and no entries; entries that point past the end.
    std::vector<uint8_t> disk(8192);
    std::memset(disk.data(), 0xEB, 440);
    PutLe16(disk.data() + 510, 0xAA55);
    EXPECT_EQ(Declared(disk), 0u);
    disk[446 + 4] = 0x07;
    PutLe32(disk.data() + 446 + 8, 0xFFFFFFF0u);
    EXPECT_EQ(Declared(disk), 0u);
}
