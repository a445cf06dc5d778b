#pragma once
// The session file (.tks4) field by field. All numbers are little-endian. In file order:
//   header
//   with a source: path length, path units (NUL-terminated UTF-16), geometry, source block, then
//     the node records of the found-item tree (each followed by its name units)
//   the drive list (list header, then per row: the row, a partition descriptor), if present
//   the second list, the same way, if present
#include <cstddef>
#include <cstdint>

#include "util/Bytes.h"

namespace kestrin::layout::session {

namespace header {
using Magic = ByteField<0x00, 4>;
inline constexpr char kMagic[4] = {'K', 'S', 'T', '3'};
using Mode = LeField<uint32_t, 0x04>;
using HasSource = LeField<uint32_t, 0x08>;
using HasDriveList = LeField<uint32_t, 0x0C>;
using HasSecondList = LeField<uint32_t, 0x10>;
inline constexpr size_t kBytes = 20;
static_assert(HasSecondList::kEnd == kBytes);
} // namespace header

// The source path's length in UTF-16 units, before the units and their terminator.
namespace path_length {
using Units = LeField<uint32_t, 0x00>;
inline constexpr size_t kBytes = 4;
} // namespace path_length

namespace geometry {
using SectorCount = LeField<uint64_t, 0x00>;
using SectorSize = LeField<uint32_t, 0x08>;
inline constexpr size_t kBytes = 12;
static_assert(SectorSize::kEnd == kBytes);
} // namespace geometry

// A partition descriptor: the record's fields in order without gaps, padded to 80 bytes in a
// drive list.
namespace partition {
using StartSector = LeField<uint64_t, 0>;
using Length = LeField<uint64_t, 8>;
using VolumeSerial = LeField<uint64_t, 16>;
using FatStart = LeField<uint64_t, 24>;
using SecondArea = LeField<uint64_t, 32>;
using ThirdArea = LeField<uint64_t, 40>;
using FatSize = LeField<uint32_t, 48>;
using IndexRecordSize = LeField<uint32_t, 52>;
using MftRecordSize = LeField<uint16_t, 56>;
using SectorsPerMftRecord = LeField<uint8_t, 58>;
using SectorsPerIndexRecord = LeField<uint8_t, 59>;
using ClusterCount = LeField<uint32_t, 60>;
using BytesPerCluster = LeField<uint32_t, 64>;
using BytesPerSector = LeField<uint16_t, 68>;
using SectorsPerCluster = LeField<uint8_t, 70>;
using FsKind = LeField<uint8_t, 71>;
using PartitionFlag = LeField<uint8_t, 72>;
using Found = LeField<uint8_t, 73>;
inline constexpr size_t kCoreBytes = 74;
inline constexpr size_t kListBytes = 80;
static_assert(Found::kEnd == kCoreBytes && kCoreBytes <= kListBytes);
} // namespace partition

// What the source was: the selected item's kinds, the range's first sector and its descriptor.
namespace source {
using FsKind = LeField<uint8_t, 0>;
using PartitionFlag = LeField<uint8_t, 1>;
using SourceKind = LeField<uint8_t, 2>;
using DeviceKind = LeField<uint8_t, 3>;
using FirstSector = LeField<uint64_t, 10>;
inline constexpr size_t kPartitionOffset = 18;
inline constexpr size_t kBytes = 102;
static_assert(FirstSector::kEnd == kPartitionOffset && kPartitionOffset + partition::kCoreBytes <= kBytes);
} // namespace source

// One node of the found-item tree, followed by `NameLength` UTF-16 units. Link fields only say
// whether a link exists.
namespace node {
using ObjectHeader = LeField<uint64_t, 0>;
using Size = LeField<uint64_t, 8>;
using Location = LeField<uint64_t, 16>;
using HasParent = LeField<uint64_t, 24>;
using HasNextSibling = LeField<uint64_t, 32>;
using HasFirstChild = LeField<uint64_t, 40>;
using RecordId = LeField<uint32_t, 48>;
using ParentRecordId = LeField<uint32_t, 52>;
using CreatedDate = LeField<uint16_t, 56>;
using ModifiedDate = LeField<uint16_t, 58>;
using Flags = LeField<uint16_t, 60>;
using Checked = LeField<uint8_t, 62>;
using Carved = LeField<uint8_t, 63>;
using HasName = LeField<uint64_t, 64>;
using NameLength = LeField<uint8_t, 72>;
using StartOffset = LeField<uint32_t, 73>;
using InDeletedView = LeField<uint8_t, 77>;
inline constexpr size_t kFixedBytes = 78;
static_assert(InDeletedView::kEnd == kFixedBytes);
// The record is written in three runs: the links, the item's own fields, the name fields.
inline constexpr size_t kItemFieldsOffset = RecordId::kOffset;
inline constexpr size_t kNameFieldsOffset = HasName::kOffset;
} // namespace node

// A drive list starts with the number of rows of each kind that follow.
namespace list_header {
using PhysicalDisks = LeField<uint16_t, 0>;
using Volumes = LeField<uint16_t, 2>;
using Others = LeField<uint16_t, 4>;
inline constexpr size_t kBytes = 6;
static_assert(Others::kEnd == kBytes);
} // namespace list_header

// One row of a drive list, as the drive-selection page keeps it.
namespace drive_item {
using StartSector = LeField<uint64_t, 0>;
using Kind = LeField<uint16_t, 8>;
using ListIndex = LeField<uint16_t, 10>;
using Name = ByteField<16, 254>; // UTF-16, the last unit of the row left as terminator
inline constexpr size_t kBytes = 272;
static_assert(Name::kEnd + 2 == kBytes);
} // namespace drive_item

} // namespace kestrin::layout::session
