// Volume labels of the four file systems on disks made by real formatters.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "TestImages.h"
#include "storage/SourceLayout.h"
#include "session/VolumeLabel.h"

namespace kestrin {
namespace {

std::vector<std::u16string> Labels(CPhysicalDisk& disk) {
    Layout layout;
    std::vector<std::u16string> out;
    for (const auto& p : ListPartitions(disk, layout)) out.push_back(ReadVolumeLabel(disk, p.startSector, p.fsKind));
    return out;
}

} // namespace

TEST(VolumeLabel, EveryFileSystemOnBothTableKinds) {
    struct Case {
        const char* image;
        std::vector<std::u16string> labels;
    };
    const Case cases[] = {
        {"disk-mbr", {u"SYSTEM", u"DATA", u"OLDDATA"}},   // FAT32, NTFS, FAT16
        // The exFAT volume (4 KiB clusters) fails the strict test and is listed last.
        {"disk-gpt", {u"NTFS", u"FAT32", u"EXFAT"}},
    };
    for (const Case& c : cases) {
        std::string path = test::UnpackImage(c.image);
        ASSERT_FALSE(path.empty()) << c.image;
        CPhysicalDisk disk;
        ASSERT_TRUE(disk.AttachImageFile(path));
        EXPECT_EQ(Labels(disk), c.labels) << c.image;
        EXPECT_TRUE(ReadVolumeLabel(disk, 0, FsKind::None).empty());
    }
}

// Without a label entry in the root directory the FAT boot sector's copy is taken; a deleted
// label entry does not count.
TEST(VolumeLabel, FatFallsBackToTheBootSectorCopy) {
    std::string path = test::UnpackImage("disk-mbr");
    ASSERT_FALSE(path.empty());
    auto bytes = test::ReadWhole(path);
    const uint64_t fat16Start = 100352 * 512;
    const char kLabel[12] = "OLDDATA    ";
    // The root directory's label entry: the name followed by the volume-label attribute.
    auto entry = std::search(bytes.begin() + long(fat16Start) + 512, bytes.end(), kLabel, kLabel + 11);
    while (entry != bytes.end() && entry[11] != 0x08) entry = std::search(entry + 1, bytes.end(), kLabel, kLabel + 11);
    ASSERT_NE(entry, bytes.end());
    entry[0] = 0xE5;
    // The FAT16 boot sector keeps its copy at byte 43, behind the signature 0x29 at 38.
    ASSERT_EQ(bytes[fat16Start + 38], 0x29);
    std::memcpy(&bytes[fat16Start + 43], "BOOT COPY  ", 11);
    CPhysicalDisk disk;
    const uint64_t sectors = bytes.size() / 512;
    disk.Attach(std::make_unique<MemorySource>(std::move(bytes)));
    disk.SetSectorSize(512);
    disk.SetSectorCount(sectors);
    EXPECT_EQ(ReadVolumeLabel(disk, 100352, FsKind::Fat16), u"BOOT COPY");
}

} // namespace kestrin
