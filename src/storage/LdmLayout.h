#pragma once
// The dynamic-disk (LDM) database field by field: the private header, the table of contents,
// the VMDB and the VBLK record slots. Every number in it is big-endian.
#include <cstddef>
#include <cstdint>
#include <optional>

#include "util/Bytes.h"

namespace kestrin::layout {

// A named big-endian field: the counterpart of LeField for formats that store numbers this way.
template <class T, size_t Offset>
struct BeField {
    static_assert(sizeof(T) == 1 || sizeof(T) == 2 || sizeof(T) == 4 || sizeof(T) == 8);
    using Type = T;
    static constexpr size_t kOffset = Offset;
    static constexpr size_t kSize = sizeof(T);
    static constexpr size_t kEnd = Offset + sizeof(T);
    static std::optional<T> Read(Bytes b, size_t base = 0) {
        if (base > b.size() || !Fits(b, base + Offset, sizeof(T))) return std::nullopt;
        return At(b.data() + base);
    }
    static T Or(Bytes b, T fallback, size_t base = 0) { return Read(b, base).value_or(fallback); }
    static T At(const uint8_t* p) {
        p += Offset;
        if constexpr (sizeof(T) == 1) return T(p[0]);
        else if constexpr (sizeof(T) == 2) return T(Be16(p));
        else if constexpr (sizeof(T) == 4) return T(Be32(p));
        else return T(Be64(p));
    }
    static void Put(uint8_t* p, T v) {
        p += Offset;
        if constexpr (sizeof(T) == 1) p[0] = uint8_t(v);
        else if constexpr (sizeof(T) == 2) PutBe16(p, uint16_t(v));
        else if constexpr (sizeof(T) == 4) PutBe32(p, uint32_t(v));
        else PutBe64(p, uint64_t(v));
    }
};

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
