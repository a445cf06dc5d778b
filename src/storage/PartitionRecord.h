#pragma once
// One partition found on a disk: where it lies, which file system its boot sector showed, and
// the geometry read from that boot sector.
#include <cstdint>

namespace kestrin {

// The values are those the partition list and session files store. FAT12 came last, so it has
// the next free number.
enum class FsKind : uint8_t { None = 0, Fat16 = 1, Fat32 = 2, Ntfs = 3, ExFat = 4, Fat12 = 5 };

// FAT12 and FAT16 keep their root folder in a fixed region before the data area.
constexpr bool HasFatRootRegion(FsKind k) { return k == FsKind::Fat12 || k == FsKind::Fat16; }
constexpr bool IsFatKind(FsKind k) { return HasFatRootRegion(k) || k == FsKind::Fat32; }

// How far a partition's boot sector was trusted: not at all (table only) or checked.
enum class PartitionFlag : uint8_t { None = 0, TableOnly = 1, Validated = 2 };

// What the partition table says a partition holds. Data: a type the table uses for the file
// systems read here (MBR FAT/NTFS types, GPT basic data); the others are listed so the whole
// disk shows, and can be scanned for lost files like any range.
enum class TableType : uint8_t {
    None = 0, Data, Linux, LinuxSwap, LinuxLvm, EfiSystem, BitLocker, AppleHfs, AppleApfs, Reserved, Other
};

struct PartitionRecord {
    uint64_t startSector = 0;
    // MBR: the table's sector count (FAT16 with a validated boot sector: its total sectors).
    // GPT: the entry's last sector, not a count.
    uint64_t length = 0;
    uint64_t volumeSerial = 0;
    uint64_t fatStart = 0;   // FAT: reserved sectors; exFAT: FAT offset
    uint64_t secondArea = 0; // FAT: second FAT sector; NTFS: MFT cluster
    uint64_t thirdArea = 0;  // FAT12/16: root dir sector; FAT32: first data sector; exFAT: root dir sector; NTFS: mirror cluster
    uint32_t fatSize = 0;
    uint32_t indexRecordSize = 0;
    uint16_t mftRecordSize = 0;
    uint8_t sectorsPerMftRecord = 0;
    uint8_t sectorsPerIndexRecord = 0;
    uint32_t clusterCount = 0;
    uint32_t bytesPerCluster = 0; // NTFS and exFAT only
    // From the boot sector; FAT area fields count sectors of this size. 0: the media's.
    uint16_t bytesPerSector = 0;
    uint16_t rootEntries = 0;     // FAT12/16: entries of the root region (0: not read, taken as 512)
    uint32_t sectorsPerCluster = 0; // exFAT clusters reach 65,536 sectors
    FsKind fsKind = FsKind::None;
    PartitionFlag partitionFlag = PartitionFlag::None;
    // Set by the lost-partition search for records it found (not part of the table).
    bool found = false;
    TableType tableType = TableType::None; // None: not from a table (volume image, search, dynamic disk)
};

} // namespace kestrin
