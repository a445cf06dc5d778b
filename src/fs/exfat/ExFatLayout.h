#pragma once
// exFAT folder entries, field by field (little-endian, offsets from the entry's first byte). A
// folder is an array of 32-byte entries; a file is an entry set: a file entry, then its stream
// extension and file-name entries (the file entry's secondary count says how many follow).
#include <cstddef>
#include <cstdint>

#include "util/Bytes.h"

namespace kestrin::layout {

namespace exfat_dir {
inline constexpr size_t kEntryBytes = 32;
using EntryType = LeField<uint8_t, 0x00>;

// Entry types in use; clearing kInUseBit gives the deleted form of each.
inline constexpr uint8_t kEndOfDirectory = 0x00; // no entry follows
inline constexpr uint8_t kInUseBit = 0x80;
inline constexpr uint8_t kTypeBitmap = 0x81;
inline constexpr uint8_t kTypeUpcase = 0x82;
inline constexpr uint8_t kTypeLabel = 0x83;
inline constexpr uint8_t kTypeFile = 0x85;
inline constexpr uint8_t kTypeGuid = 0xA0;
inline constexpr uint8_t kTypeStream = 0xC0;
inline constexpr uint8_t kTypeName = 0xC1;
inline constexpr uint8_t Deleted(uint8_t type) { return uint8_t(type & ~kInUseBit); }
} // namespace exfat_dir

// The file entry: opens an entry set.
namespace exfat_file {
using SecondaryCount = LeField<uint8_t, 0x01>;
using SetChecksum = LeField<uint16_t, 0x02>;
using Attributes = LeField<uint16_t, 0x04>;
using CreateTimestamp = LeField<uint32_t, 0x08>;
using ModifyTimestamp = LeField<uint32_t, 0x0C>;
using AccessTimestamp = LeField<uint32_t, 0x10>;
using Create10ms = LeField<uint8_t, 0x14>;
using Modify10ms = LeField<uint8_t, 0x15>;
using CreateUtcOffset = LeField<uint8_t, 0x16>;
using ModifyUtcOffset = LeField<uint8_t, 0x17>;
using AccessUtcOffset = LeField<uint8_t, 0x18>;
static_assert(AccessUtcOffset::kEnd <= exfat_dir::kEntryBytes);

// The attribute bits are FAT's (fat_dir::kAttr...).
// A timestamp holds a DOS time in its low half and a DOS date in its high half.
inline constexpr unsigned kTimestampDateShift = 16;
} // namespace exfat_file

// The stream extension: where the file's data is.
namespace exfat_stream {
using Flags = LeField<uint8_t, 0x01>;
using NameLength = LeField<uint8_t, 0x03>;
using NameHash = LeField<uint16_t, 0x04>;
using ValidDataLength = LeField<uint64_t, 0x08>;
using FirstCluster = LeField<uint32_t, 0x14>;
using DataLength = LeField<uint64_t, 0x18>;
static_assert(DataLength::kEnd == exfat_dir::kEntryBytes);

inline constexpr uint8_t kAllocationPossible = 0x01;
inline constexpr uint8_t kNoFatChain = 0x02; // the data is one contiguous run
} // namespace exfat_stream

// A file-name entry: 15 UTF-16 units of the name.
namespace exfat_name {
using Flags = LeField<uint8_t, 0x01>;
using Units = ByteField<0x02, 30>;
static_assert(Units::kEnd == exfat_dir::kEntryBytes);
inline constexpr size_t kUnitsPerEntry = Units::kSize / 2;
} // namespace exfat_name

// The allocation bitmap entry of the root folder: one bit per cluster, from cluster 2.
namespace exfat_bitmap {
using Flags = LeField<uint8_t, 0x01>;
using FirstCluster = LeField<uint32_t, 0x14>;
using DataLength = LeField<uint64_t, 0x18>;
static_assert(DataLength::kEnd == exfat_dir::kEntryBytes);
} // namespace exfat_bitmap

// The volume-label entry of the root folder: up to 11 UTF-16 units.
namespace exfat_label {
using CharacterCount = LeField<uint8_t, 0x01>;
using Units = ByteField<0x02, 22>;
static_assert(Units::kEnd <= exfat_dir::kEntryBytes);
inline constexpr size_t kMaxUnits = Units::kSize / 2;
} // namespace exfat_label

} // namespace kestrin::layout
