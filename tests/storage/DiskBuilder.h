#pragma once
// Tiny disks built in memory: partition entries, EBRs, GPT arrays and boot sectors of the four
// file systems, with the fields a real formatter writes.
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "storage/CPhysicalDisk.h"
#include "util/Bytes.h"

namespace kestrin::test {

constexpr uint32_t kSector = 512;

struct DiskBuilder {
    std::vector<uint8_t> bytes;
    explicit DiskBuilder(size_t sectors) : bytes(sectors * kSector) {}
    uint8_t* At(uint64_t sector) { return bytes.data() + sector * kSector; }

    // Entry i of the table in `tableSector`; also stamps that sector's 0xAA55.
    void Entry(uint64_t tableSector, int i, uint8_t type, uint32_t start, uint32_t count) {
        uint8_t* e = At(tableSector) + 446 + 16 * i;
        e[4] = type;
        PutLe32(e + 8, start);
        PutLe32(e + 12, count);
        PutLe16(At(tableSector) + 510, 0xAA55);
    }

    std::unique_ptr<CPhysicalDisk> Disk() const {
        auto disk = std::make_unique<CPhysicalDisk>();
        disk->Attach(std::make_unique<MemorySource>(bytes));
        disk->SetSectorSize(kSector);
        disk->SetSectorCount(bytes.size() / kSector);
        return disk;
    }
};

// NTFS: 8 sectors per cluster, 1,024-byte MFT records (-10), 1 cluster per index record.
inline void PutNtfsBoot(uint8_t* s, uint64_t totalSectors, uint64_t mftCluster = 4, uint64_t serial = 0x1122334455667788) {
    const uint8_t jump[3] = {0xEB, 0x52, 0x90};
    std::memcpy(s, jump, 3);
    std::memcpy(s + 3, "NTFS    ", 8);
    PutLe16(s + 11, 512);
    s[13] = 8;
    s[21] = 0xF8;
    s[36] = 0x80;
    PutLe64(s + 40, totalSectors);
    PutLe64(s + 48, mftCluster);
    PutLe64(s + 56, totalSectors / 16);
    s[64] = 0xF6;
    s[68] = 1;
    PutLe64(s + 72, serial);
    PutLe16(s + 510, 0xAA55);
}

// FAT32: 8 sectors per cluster, 32 reserved, two FATs of 100 sectors.
inline void PutFat32Boot(uint8_t* s, uint32_t totalSectors) {
    const uint8_t jump[3] = {0xEB, 0x58, 0x90};
    std::memcpy(s, jump, 3);
    std::memcpy(s + 3, "mkfs.fat", 8);
    PutLe16(s + 11, 512);
    s[13] = 8;
    PutLe16(s + 14, 32);
    s[16] = 2;
    s[21] = 0xF8;
    PutLe32(s + 32, totalSectors);
    PutLe32(s + 36, 100);
    PutLe32(s + 44, 2);
    PutLe16(s + 48, 1);
    PutLe16(s + 50, 6);
    std::memcpy(s + 82, "FAT32   ", 8);
    PutLe16(s + 510, 0xAA55);
}

// FAT16: 4 sectors per cluster, 4 reserved, two FATs of 64 sectors, 512 root entries. A total
// below 65,536 goes into the 16-bit field, as formatters write it.
inline void PutFat16Boot(uint8_t* s, uint32_t totalSectors) {
    const uint8_t jump[3] = {0xEB, 0x3C, 0x90};
    std::memcpy(s, jump, 3);
    std::memcpy(s + 3, "mkfs.fat", 8);
    PutLe16(s + 11, 512);
    s[13] = 4;
    PutLe16(s + 14, 4);
    s[16] = 2;
    PutLe16(s + 17, 512);
    if (totalSectors < 65536) PutLe16(s + 19, uint16_t(totalSectors));
    else PutLe32(s + 32, totalSectors);
    s[21] = 0xF8;
    PutLe16(s + 22, 64);
    std::memcpy(s + 54, "FAT16   ", 8);
    PutLe16(s + 510, 0xAA55);
}

// exFAT with the given shifts; FAT at 2,048 (32 sectors), heap at 4,096, root at cluster 5.
inline void PutExFatBoot(uint8_t* s, uint8_t bpsShift = 9, uint8_t spcShift = 2) {
    const uint8_t jump[3] = {0xEB, 0x76, 0x90};
    std::memcpy(s, jump, 3);
    std::memcpy(s + 3, "EXFAT   ", 8);
    PutLe64(s + 72, 49152);
    PutLe32(s + 80, 2048);
    PutLe32(s + 84, 32);
    PutLe32(s + 88, 4096);
    PutLe32(s + 92, 3584);
    PutLe32(s + 96, 5);
    PutLe32(s + 100, 0xCAFEF00D);
    s[108] = bpsShift;
    s[109] = spcShift;
    PutLe16(s + 510, 0xAA55);
}

// GPT type GUIDs in their on-disk byte order (first three groups little-endian).
constexpr uint8_t kGuidBasicData[16] = {0xA2, 0xA0, 0xD0, 0xEB, 0xE5, 0xB9, 0x33, 0x44,
                                        0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7};
constexpr uint8_t kGuidLdmMetadata[16] = {0xAA, 0xC8, 0x08, 0x58, 0x8F, 0x7E, 0xE0, 0x42,
                                          0x85, 0xD2, 0xE1, 0xE9, 0x04, 0x34, 0xCF, 0xB3};
constexpr uint8_t kGuidLdmData[16] = {0xA0, 0x60, 0x9B, 0xAF, 0x31, 0x14, 0x62, 0x4F,
                                      0xBC, 0x68, 0x33, 0x11, 0x71, 0x4A, 0x69, 0xAD};
constexpr uint8_t kGuidLinuxData[16] = {0xAF, 0x3D, 0xC6, 0x0F, 0x83, 0x84, 0x72, 0x47,
                                        0x8E, 0x79, 0x3D, 0x69, 0xD8, 0x47, 0x7D, 0xE4};

// Protective MBR, header at sector 1, entry array at sector 2.
inline void PutGptHeader(DiskBuilder& d, uint32_t entryCount = 128, uint32_t entrySize = 128, uint64_t arrayStart = 2) {
    d.Entry(0, 0, 0xEE, 1, uint32_t(d.bytes.size() / kSector - 1));
    uint8_t* h = d.At(1);
    std::memcpy(h, "EFI PART", 8);
    PutLe64(h + 72, arrayStart);
    PutLe32(h + 80, entryCount);
    PutLe32(h + 84, entrySize);
}

inline void PutGptEntry(DiskBuilder& d, int index, const uint8_t* guid, uint64_t first, uint64_t last,
                        uint32_t entrySize = 128, uint64_t arrayStart = 2) {
    uint8_t* e = d.At(arrayStart) + size_t(index) * entrySize;
    std::memcpy(e, guid, 16);
    e[16] = uint8_t(index + 1); // unique GUID, any value
    PutLe64(e + 32, first);
    PutLe64(e + 40, last);
}

} // namespace kestrin::test
