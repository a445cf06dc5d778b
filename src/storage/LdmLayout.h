#pragma once
// The dynamic-disk (LDM) database field by field: the private header, the table of contents,
// the VMDB and the VBLK record slots. Every number in it is big-endian.
#include <cstddef>
#include <cstdint>
#include <optional>

#include "util/Bytes.h"

namespace kestrin::layout {

namespace ldm {

// The private header: on an MBR disk in sector 6, on a GPT disk in the last sector of the
// metadata partition.
namespace privhead {
inline constexpr uint64_t kMbrSector = 6;
using Magic = ByteField<0x00, 8>;
inline constexpr char kMagic[8] = {'P', 'R', 'I', 'V', 'H', 'E', 'A', 'D'};
using VersionMajor = BeField<uint16_t, 0x0C>;
using VersionMinor = BeField<uint16_t, 0x0E>;
using DiskGuid = ByteField<0x30, 64>; // text, NUL-padded
using LogicalDiskStart = BeField<uint64_t, 0x11B>;
using LogicalDiskSize = BeField<uint64_t, 0x123>;
using ConfigStart = BeField<uint64_t, 0x12B>;
using ConfigSize = BeField<uint64_t, 0x133>;
// The fixed fields end here.
inline constexpr size_t kBytes = 391;
static_assert(ConfigSize::kEnd <= kBytes);
// Every dynamic disk keeps a configuration area of this many sectors.
inline constexpr uint64_t kConfigSectors = 2048;
} // namespace privhead

// The table of contents, in sector 1 or 2 of the configuration area or at its end. Two bitmap
// entries follow the header: "config" (where the VMDB starts) and "log".
namespace tocblock {
using Magic = ByteField<0x00, 8>;
inline constexpr char kMagic[8] = {'T', 'O', 'C', 'B', 'L', 'O', 'C', 'K'};
inline constexpr size_t kFirstBitmap = 0x24;
inline constexpr size_t kSecondBitmap = 0x46;
// A bitmap entry, offsets from its first byte.
namespace bitmap {
using Name = ByteField<0x00, 8>;         // "config" or "log", NUL-padded
inline constexpr char kConfigName[6] = {'c', 'o', 'n', 'f', 'i', 'g'};
using Flags = BeField<uint16_t, 0x08>;
using StartSector = BeField<uint64_t, 0x0A>; // from the configuration area's start
using Sectors = BeField<uint64_t, 0x12>;
static_assert(kFirstBitmap + Sectors::kEnd <= kSecondBitmap);
} // namespace bitmap
} // namespace tocblock

// The VMDB header, followed by the VBLK slots.
namespace vmdb {
using Magic = ByteField<0x00, 4>;
inline constexpr char kMagic[4] = {'V', 'M', 'D', 'B'};
using SequenceNumber = BeField<uint32_t, 0x04>;
using VblkSize = BeField<uint32_t, 0x08>;
using FirstVblkOffset = BeField<uint32_t, 0x0C>;
inline constexpr size_t kHeaderBytes = 0x10;
static_assert(FirstVblkOffset::kEnd == kHeaderBytes);
} // namespace vmdb

// One VBLK slot: a fragment header, then (in the first fragment) the record header and the
// record's variable-length fields.
namespace vblk {
using Magic = ByteField<0x00, 4>;
inline constexpr char kMagic[4] = {'V', 'B', 'L', 'K'};
using SequenceNumber = BeField<uint32_t, 0x04>;
using GroupNumber = BeField<uint32_t, 0x08>;
using FragmentIndex = BeField<uint16_t, 0x0C>;
using FragmentCount = BeField<uint16_t, 0x0E>;
inline constexpr size_t kFragmentHeaderBytes = 0x10;
static_assert(FragmentCount::kEnd == kFragmentHeaderBytes);
using Status = BeField<uint16_t, 0x10>;
using Flags = BeField<uint8_t, 0x12>;
// Low nibble: the record type; high nibble: its revision.
using TypeAndRevision = BeField<uint8_t, 0x13>;
using DataLength = BeField<uint32_t, 0x14>;
// The object id, the first of the variable-length fields.
inline constexpr size_t kRecordData = 0x18;
static_assert(DataLength::kEnd == kRecordData);
// The smallest slot that holds a record header.
inline constexpr uint32_t kMinSlotBytes = 0x20;

inline constexpr uint8_t kTypeMask = 0x0F;
inline constexpr unsigned kRevisionShift = 4;
inline constexpr uint8_t kTypeVolume = 1, kTypeComponent = 2, kTypePartition = 3, kTypeDisk = 4;

// Component records: the layout byte, and the flag that adds stripe size and column count.
inline constexpr uint8_t kComponentStriped = 1, kComponentBasic = 2, kComponentRaid = 3;
inline constexpr uint8_t kFlagComponentStripe = 0x10;
// Partition records: the flag that adds the column index.
inline constexpr uint8_t kFlagPartitionIndex = 0x08;
// Disk records of this revision keep the disk GUID as 16 bytes instead of text.
inline constexpr uint8_t kDiskRevisionBinaryGuid = 4;

// Fixed-size runs between the variable-length fields of a record, as far as they are read.
inline constexpr size_t kComponentTypeAndUnknown = 5; // the layout byte and four unknown bytes
inline constexpr size_t kComponentLogCommitAndUnknown = 16;
inline constexpr size_t kComponentBeforeStripe = 1;
inline constexpr size_t kPartitionBeforeStart = 12;
inline constexpr size_t kDiskGuidBytes = 16;
} // namespace vblk

} // namespace ldm
} // namespace kestrin::layout
