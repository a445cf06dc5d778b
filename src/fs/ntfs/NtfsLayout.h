#pragma once
// NTFS on-disk structures, field by field: the file record and its attribute headers, the
// attribute values the engine reads, attribute lists, index roots, index entries and index
// records. All little-endian; each field's offset counts from its structure's first byte. The
// boot sector is in storage/BootSectorLayout.h.
#include <cstddef>
#include <cstdint>

#include "storage/BootSectorLayout.h"
#include "util/Bytes.h"

namespace kestrin::layout::ntfs {

// A file reference: record number in the low 48 bits, that record's sequence number above.
namespace file_reference {
inline constexpr uint64_t kNumberMask = (1ull << 48) - 1;
inline constexpr unsigned kSequenceShift = 48;
constexpr uint64_t Number(uint64_t ref) { return ref & kNumberMask; }
constexpr uint16_t Sequence(uint64_t ref) { return uint16_t(ref >> kSequenceShift); }
} // namespace file_reference

// The engine's boot test reads the clusters-per-record and per-index-block bytes as 32-bit values.
namespace boot {
using ClustersPerRecord32 = LeField<uint32_t, ntfs_boot::ClustersPerRecord::kOffset>;
using ClustersPerIndexBlock32 = LeField<uint32_t, ntfs_boot::ClustersPerIndexBlock::kOffset>;
// The third byte of the jump instruction: a NOP after the short jump.
inline constexpr uint8_t kJumpNop = 0x90;
inline constexpr uint8_t kFixedDiskDrive = 0x80;
// Bytes the boot test and the geometry read.
inline constexpr size_t kTestedBytes = ClustersPerIndexBlock32::kEnd;
static_assert(kTestedBytes <= ntfs_boot::kHeaderBytes);
} // namespace boot

// The header of an MFT file record.
namespace file_record {
using Magic = ByteField<0x00, 4>;
using UsaOffset = LeField<uint16_t, 0x04>;
using UsaCount = LeField<uint16_t, 0x06>;
using Lsn = LeField<uint64_t, 0x08>;
using Sequence = LeField<uint16_t, 0x10>;
using LinkCount = LeField<uint16_t, 0x12>;
using FirstAttribute = LeField<uint16_t, 0x14>;
using Flags = LeField<uint16_t, 0x16>;
using BytesInUse = LeField<uint32_t, 0x18>;
using BytesAllocated = LeField<uint32_t, 0x1C>;
using BaseRecord = LeField<uint64_t, 0x20>; // a file reference; 0 in a base record
using NextAttributeId = LeField<uint16_t, 0x28>;
// Only in headers whose update-sequence array starts at kUsaOffsetNumbered; the older header
// (array at kUsaOffsetOld) ends before it.
using RecordNumber = LeField<uint32_t, 0x2C>;
inline constexpr size_t kHeaderBytes = 0x30;
static_assert(RecordNumber::kEnd == kHeaderBytes);

inline constexpr char kMagic[] = "FILE";
// What the file system writes over the signature of a record whose fix-up failed.
inline constexpr char kBadMagic[] = "BAAD";
inline constexpr uint16_t kUsaOffsetOld = 42;
inline constexpr uint16_t kUsaOffsetNumbered = 48;
inline constexpr uint16_t kFlagInUse = 0x0001;
inline constexpr uint16_t kFlagDirectory = 0x0002;
} // namespace file_record

// The common header of every attribute in a file record.
namespace attr {
using Type = LeField<uint32_t, 0x00>;
using Length = LeField<uint32_t, 0x04>;
using NonResident = LeField<uint8_t, 0x08>;
using NameLength = LeField<uint8_t, 0x09>; // UTF-16 units
using NameOffset = LeField<uint16_t, 0x0A>;
using Flags = LeField<uint16_t, 0x0C>;
using Id = LeField<uint16_t, 0x0E>;
inline constexpr size_t kHeaderBytes = 0x10;
static_assert(Id::kEnd == kHeaderBytes);

// The low byte of the flags names the compression method; zero means none.
inline constexpr uint16_t kFlagsCompressionMask = 0x00FF;
// Type codes are multiples of this, at most kMaxType for the attributes a record may hold.
inline constexpr uint32_t kTypeStep = 0x10;
inline constexpr uint32_t kMaxType = 0x100;
} // namespace attr

// The rest of a resident attribute's header.
namespace resident {
using ValueLength = LeField<uint32_t, 0x10>;
using ValueOffset = LeField<uint16_t, 0x14>;
using IndexedFlag = LeField<uint8_t, 0x16>;
inline constexpr size_t kHeaderBytes = 0x18;
static_assert(IndexedFlag::kEnd <= kHeaderBytes);
} // namespace resident

// The rest of a non-resident attribute's header (this piece covers VCNs first..last).
namespace nonresident {
using FirstVcn = LeField<uint64_t, 0x10>;
using LastVcn = LeField<uint64_t, 0x18>;
using RunListOffset = LeField<uint16_t, 0x20>;
using CompressionUnit = LeField<uint8_t, 0x22>; // log2 of the unit's clusters
using AllocatedSize = LeField<uint64_t, 0x28>;
using DataSize = LeField<uint64_t, 0x30>;
using InitializedSize = LeField<uint64_t, 0x38>;
inline constexpr size_t kHeaderBytes = 0x40;
static_assert(InitializedSize::kEnd == kHeaderBytes);
} // namespace nonresident

// The value of $STANDARD_INFORMATION (times in 100 ns ticks since 1601).
namespace std_info {
using Created = LeField<uint64_t, 0x00>;
using Modified = LeField<uint64_t, 0x08>;
using RecordChanged = LeField<uint64_t, 0x10>;
using Accessed = LeField<uint64_t, 0x18>;
using FileAttributes = LeField<uint32_t, 0x20>;
inline constexpr size_t kMinValueBytes = 0x30; // the oldest form; later ones append fields
static_assert(FileAttributes::kEnd <= kMinValueBytes);
} // namespace std_info

// The value of $FILE_NAME, also the key of a folder's index entries.
namespace file_name {
using ParentReference = LeField<uint64_t, 0x00>;
using ParentRecord = LeField<uint32_t, 0x00>; // the low 32 bits of the parent's number
using ParentSequence = LeField<uint16_t, 0x06>;
using Created = LeField<uint64_t, 0x08>;
using Modified = LeField<uint64_t, 0x10>;
using RecordChanged = LeField<uint64_t, 0x18>;
using Accessed = LeField<uint64_t, 0x20>;
using AllocatedSize = LeField<uint64_t, 0x28>;
using DataSize = LeField<uint64_t, 0x30>;
using FileAttributes = LeField<uint32_t, 0x38>;
using NameLength = LeField<uint8_t, 0x40>; // UTF-16 units
using Namespace = LeField<uint8_t, 0x41>;
inline constexpr size_t kNameOffset = 0x42; // the name itself
static_assert(Namespace::kEnd == kNameOffset);

inline constexpr uint8_t kNamespaceDos = 2; // a short name only
// In the file attributes: the item has a file-name index, i.e. it is a folder.
inline constexpr uint32_t kAttributeHasIndex = 0x10000000;
} // namespace file_name

// One entry of an attribute list: where a piece of an attribute lives.
namespace attr_list {
using Type = LeField<uint32_t, 0x00>;
using Length = LeField<uint16_t, 0x04>;
using NameLength = LeField<uint8_t, 0x06>;
using NameOffset = LeField<uint8_t, 0x07>;
using FirstVcn = LeField<uint64_t, 0x08>;
using Record = LeField<uint64_t, 0x10>; // a file reference
using AttributeId = LeField<uint16_t, 0x18>;
inline constexpr size_t kMinEntryBytes = 0x1A;
static_assert(AttributeId::kEnd == kMinEntryBytes);
} // namespace attr_list

// The header every index node starts with (in an index root and in an index record); offsets
// count from this header's first byte.
namespace index_header {
using EntriesOffset = LeField<uint32_t, 0x00>;
using BytesInUse = LeField<uint32_t, 0x04>;
using BytesAllocated = LeField<uint32_t, 0x08>;
using Flags = LeField<uint8_t, 0x0C>;
inline constexpr size_t kHeaderBytes = 0x10;
static_assert(Flags::kEnd <= kHeaderBytes);
} // namespace index_header

// The value of $INDEX_ROOT: which attribute it indexes, then an index header.
namespace index_root {
using IndexedType = LeField<uint32_t, 0x00>;
using CollationRule = LeField<uint32_t, 0x04>;
using BytesPerIndexRecord = LeField<uint32_t, 0x08>;
using ClustersPerIndexRecord = LeField<uint8_t, 0x0C>;
inline constexpr size_t kIndexHeader = 0x10;
inline constexpr size_t kHeaderBytes = kIndexHeader + index_header::kHeaderBytes;
static_assert(ClustersPerIndexRecord::kEnd <= kIndexHeader);
} // namespace index_root

// One index entry; the key (a $FILE_NAME value in folders) follows the header.
namespace index_entry {
using FileReference = LeField<uint64_t, 0x00>;
using FileRecord = LeField<uint32_t, 0x00>; // the low 32 bits of the record number
using Length = LeField<uint16_t, 0x08>;
using KeyLength = LeField<uint16_t, 0x0A>;
using Flags = LeField<uint8_t, 0x0C>;
inline constexpr size_t kKeyOffset = 0x10;
inline constexpr size_t kHeaderBytes = kKeyOffset;
static_assert(Flags::kEnd <= kHeaderBytes);
inline constexpr uint8_t kFlagLast = 0x02; // the end marker, no key
} // namespace index_entry

// An "INDX" record of a folder's index allocation: its own header, then an index header.
namespace index_record {
using Magic = ByteField<0x00, 4>;
using UsaOffset = LeField<uint16_t, 0x04>;
using UsaCount = LeField<uint16_t, 0x06>;
using Lsn = LeField<uint64_t, 0x08>;
using Vcn = LeField<uint64_t, 0x10>;
inline constexpr size_t kIndexHeader = 0x18;
inline constexpr size_t kHeaderBytes = kIndexHeader + index_header::kHeaderBytes;
static_assert(Vcn::kEnd == kIndexHeader);
inline constexpr char kMagic[] = "INDX";
} // namespace index_record

// The first byte of each run of a run list: the low nibble sizes the length field, the high one
// the offset field (none for a sparse run). The fields follow it, little-endian, the offset signed.
namespace run_header {
inline constexpr uint8_t kLengthSizeMask = 0x0F;
inline constexpr unsigned kOffsetSizeShift = 4;
inline constexpr uint8_t kSignBit = 0x80; // in the offset field's last byte
} // namespace run_header

} // namespace kestrin::layout::ntfs
