#pragma once
// FAT12/16/32 folder entries, field by field (little-endian, offsets from the entry's first
// byte). A folder is an array of 32-byte entries: short (8.3) entries, each preceded by the
// long-name pieces of its name, last piece first.
#include <array>
#include <cstddef>
#include <cstdint>

#include "util/Bytes.h"

namespace kestrin::layout {

namespace fat_dir {
inline constexpr size_t kEntryBytes = 32;

// The first name byte doubles as the entry's state (end of folder, deleted).
using Status = LeField<uint8_t, 0x00>;
using Name = ByteField<0x00, 8>;
using Extension = ByteField<0x08, 3>;
using Name83 = ByteField<0x00, 11>;
using Attributes = LeField<uint8_t, 0x0B>;
// Lower-case bits for the base name and the extension, set by Windows NT and later.
using CaseFlags = LeField<uint8_t, 0x0C>;
using CreationTenths = LeField<uint8_t, 0x0D>;
using CreationTime = LeField<uint16_t, 0x0E>;
using CreationDate = LeField<uint16_t, 0x10>;
using AccessDate = LeField<uint16_t, 0x12>;
using FirstClusterHigh = LeField<uint16_t, 0x14>; // FAT32 only; zero on FAT16
using WriteTime = LeField<uint16_t, 0x16>;
using WriteDate = LeField<uint16_t, 0x18>;
using FirstClusterLow = LeField<uint16_t, 0x1A>;
using FileSize = LeField<uint32_t, 0x1C>;
static_assert(FileSize::kEnd == kEntryBytes && Name83::kEnd == Attributes::kOffset);

// Status byte values.
inline constexpr uint8_t kEndOfFolder = 0x00;
inline constexpr uint8_t kDeletedMark = 0xE5;
inline constexpr uint8_t kE5Substitute = 0x05; // a real first byte 0xE5, which would read as deleted
inline constexpr uint8_t kBlank = 0x20;      // names are padded with blanks

// Attribute bits.
inline constexpr uint8_t kAttrReadOnly = 0x01;
inline constexpr uint8_t kAttrHidden = 0x02;
inline constexpr uint8_t kAttrSystem = 0x04;
inline constexpr uint8_t kAttrVolumeLabel = 0x08;
inline constexpr uint8_t kAttrFolder = 0x10;
inline constexpr uint8_t kAttrArchive = 0x20;
inline constexpr uint8_t kAttrReservedBits = 0xC0;
// All four low bits at once mark a long-name piece.
inline constexpr uint8_t kAttrLongName = kAttrReadOnly | kAttrHidden | kAttrSystem | kAttrVolumeLabel;
// Every bit an entry may carry; exFAT keeps the same bits in a 16-bit field.
inline constexpr uint16_t kAttrKnownBits = kAttrLongName | kAttrFolder | kAttrArchive;
// A volume label is never a folder: the two bits together mark no entry.
inline constexpr uint8_t kAttrLabelFolder = kAttrVolumeLabel | kAttrFolder;

// True when no entry holds these attributes: a bit above archive, or label and folder at once.
// Any mix of read-only, hidden, system, archive and folder is a real entry's.
inline constexpr bool ImpossibleAttributes(uint16_t attr) {
    return (attr & ~kAttrKnownBits) != 0 || (attr & kAttrLabelFolder) == kAttrLabelFolder;
}

// Case flag bits.
inline constexpr uint8_t kCaseLowerBase = 0x08;
inline constexpr uint8_t kCaseLowerExtension = 0x10;

// The names of the first two entries of every sub-folder.
inline constexpr char kDotName[] = ".          ";
inline constexpr char kDotDotName[] = "..         ";
static_assert(sizeof(kDotName) - 1 == Name83::kSize && sizeof(kDotDotName) - 1 == Name83::kSize);

// The first cluster, from its two halves. `e` points at an entry of kEntryBytes.
inline uint32_t FirstClusterAt(const uint8_t* e) {
    return uint32_t(FirstClusterHigh::At(e)) << 16 | FirstClusterLow::At(e);
}
} // namespace fat_dir

// A long-name piece: 13 UTF-16 units in three parts, in an entry the short-entry readers skip
// (attributes kAttrLongName, cluster 0).
namespace fat_lfn {
using Order = LeField<uint8_t, 0x00>;
using Name1 = ByteField<0x01, 10>;
using Attributes = LeField<uint8_t, 0x0B>;
using Type = LeField<uint8_t, 0x0C>; // 0 for a name piece
using Checksum = LeField<uint8_t, 0x0D>;
using Name2 = ByteField<0x0E, 12>;
using Cluster = LeField<uint16_t, 0x1A>; // always 0
using Name3 = ByteField<0x1C, 4>;
static_assert(Name3::kEnd == fat_dir::kEntryBytes);

inline constexpr uint8_t kLastPiece = 0x40;     // order bit: the piece that ends the name
inline constexpr uint8_t kOrderMask = 0x1F;     // the piece's place, from 1
inline constexpr uint8_t kOrderBadBits = 0xA0;  // never set in a live piece
inline constexpr uint8_t kMaxPieces = 20;       // 255 units
inline constexpr size_t kUnitsPerPiece = (Name1::kSize + Name2::kSize + Name3::kSize) / 2;

// Offsets of the piece's units in name order.
inline constexpr std::array<uint8_t, kUnitsPerPiece> kUnitOffsets = [] {
    std::array<uint8_t, kUnitsPerPiece> at{};
    size_t k = 0;
    for (size_t i = 0; i < Name1::kSize; i += 2) at[k++] = uint8_t(Name1::kOffset + i);
    for (size_t i = 0; i < Name2::kSize; i += 2) at[k++] = uint8_t(Name2::kOffset + i);
    for (size_t i = 0; i < Name3::kSize; i += 2) at[k++] = uint8_t(Name3::kOffset + i);
    return at;
}();
static_assert(kUnitsPerPiece == 13);
} // namespace fat_lfn

// FAT entry values. FAT12 packs two 12-bit entries into three bytes: entry n starts at byte
// n * 3 / 2; an even entry takes the low 12 bits of the 16 there, an odd one the high 12.
namespace fat_table {
inline constexpr uint32_t kFat32EntryMask = 0x0FFFFFFF; // the top four bits are reserved
inline constexpr unsigned kFat12OddShift = 4;
inline constexpr uint32_t kFat12EntryMask = 0x0FFF;
// Values from here up end a chain (bad-cluster marks and end-of-chain marks).
inline constexpr uint32_t kFat16ChainEndFrom = 0xFFF0;
inline constexpr uint32_t kFat16ChainEndTo = 0xFFFF;
inline constexpr uint32_t kFat32ChainEndFrom = 0x0FFFFFF0;
// FAT12: the bad-cluster mark 0xFF7 and the end marks 0xFF8-0xFFF.
inline constexpr uint32_t kFat12ChainEndFrom = 0x0FF7;
// The highest cluster numbers a FAT can give out (one below the bad-cluster mark).
inline constexpr uint32_t kFat12MaxCluster = 0x0FF6;
inline constexpr uint32_t kFat16MaxCluster = 0xFFF6;
inline constexpr uint32_t kFat32MaxCluster = 0x0FFFFFF6;
inline constexpr uint32_t kExFatMaxCluster = 0xFFFFFFF6;
inline constexpr uint32_t kFirstDataCluster = 2;
} // namespace fat_table

} // namespace kestrin::layout
