#pragma once
// Partition tables field by field: the MBR (and every EBR of an extended chain, which has the
// same shape), the GPT header and the GPT partition entry. All numbers are little-endian.
#include <cstddef>
#include <cstdint>

#include "storage/BootSectorLayout.h"
#include "util/Bytes.h"

namespace kestrin::layout {

// Sector 0 of an MBR disk, and each EBR: boot code, four entries, the boot signature.
namespace mbr {
using BootCode = ByteField<0x000, 446>;
inline constexpr size_t kEntriesOffset = 0x1BE;
inline constexpr size_t kEntryBytes = 16;
inline constexpr size_t kEntryCount = 4;
using Signature = BootSignature;
inline constexpr size_t kTableBytes = 512;
static_assert(BootCode::kEnd == kEntriesOffset);
static_assert(kEntriesOffset + kEntryCount * kEntryBytes == Signature::kOffset);

// Where entry `i` (0 to 3) starts in the table sector.
constexpr size_t EntryOffset(size_t i) { return kEntriesOffset + i * kEntryBytes; }

// One 16-byte entry, offsets from its first byte.
namespace entry {
using Status = LeField<uint8_t, 0x00>;      // 0x80 bootable
using FirstChs = ByteField<0x01, 3>;
using Type = LeField<uint8_t, 0x04>;
using LastChs = ByteField<0x05, 3>;
using FirstLba = LeField<uint32_t, 0x08>;   // relative to the table (data) or to the first EBR (links)
using SectorCount = LeField<uint32_t, 0x0C>;
static_assert(SectorCount::kEnd == kEntryBytes);
} // namespace entry

// Partition types this program acts on.
inline constexpr uint8_t kTypeEmpty = 0x00;
inline constexpr uint8_t kTypeFat12 = 0x01;
inline constexpr uint8_t kTypeFat16Small = 0x04;
inline constexpr uint8_t kTypeExtended = 0x05;
inline constexpr uint8_t kTypeFat16 = 0x06;
inline constexpr uint8_t kTypeNtfs = 0x07;      // also exFAT
inline constexpr uint8_t kTypeFat32 = 0x0B;
inline constexpr uint8_t kTypeFat32Lba = 0x0C;
inline constexpr uint8_t kTypeFat16Lba = 0x0E;
inline constexpr uint8_t kTypeExtendedLba = 0x0F;
inline constexpr uint8_t kTypeDynamicDisk = 0x42;
inline constexpr uint8_t kTypeExtendedLinux = 0x85;
inline constexpr uint8_t kTypeGptProtective = 0xEE;
// Types of other file systems, listed but not read.
inline constexpr uint8_t kTypeLinuxSwap = 0x82;
inline constexpr uint8_t kTypeLinux = 0x83;
inline constexpr uint8_t kTypeLinuxLvm = 0x8E;
inline constexpr uint8_t kTypeAppleHfs = 0xAF;
inline constexpr uint8_t kTypeEfiSystem = 0xEF;
} // namespace mbr

// A GPT's first sector (normally LBA 1), offsets from its first byte.
namespace gpt_header {
using Signature = ByteField<0x00, 8>; // "EFI PART"
inline constexpr char kSignature[8] = {'E', 'F', 'I', ' ', 'P', 'A', 'R', 'T'};
using Revision = LeField<uint32_t, 0x08>;
using HeaderSize = LeField<uint32_t, 0x0C>;
using HeaderCrc = LeField<uint32_t, 0x10>;
using CurrentLba = LeField<uint64_t, 0x18>;
using BackupLba = LeField<uint64_t, 0x20>;
using FirstUsableLba = LeField<uint64_t, 0x28>;
using LastUsableLba = LeField<uint64_t, 0x30>;
using DiskGuid = ByteField<0x38, 16>;
using EntryArrayLba = LeField<uint64_t, 0x48>;
using EntryCount = LeField<uint32_t, 0x50>;
using EntrySize = LeField<uint32_t, 0x54>;
using EntryArrayCrc = LeField<uint32_t, 0x58>;
inline constexpr size_t kHeaderBytes = 92;
static_assert(EntryArrayCrc::kEnd == kHeaderBytes);
} // namespace gpt_header

// One GPT partition entry (128 bytes, or the multiple of 128 the header gives).
namespace gpt_entry {
using TypeGuid = ByteField<0x00, 16>;
using UniqueGuid = ByteField<0x10, 16>;
using FirstLba = LeField<uint64_t, 0x20>;
using LastLba = LeField<uint64_t, 0x28>; // inclusive
using Attributes = LeField<uint64_t, 0x30>;
using Name = ByteField<0x38, 72>;        // UTF-16
inline constexpr size_t kEntryBytes = 128;
static_assert(Name::kEnd == kEntryBytes);
} // namespace gpt_entry

// A GUID as stored: a 32-bit and two 16-bit little-endian parts, then eight bytes as they are.
namespace guid {
using Data1 = LeField<uint32_t, 0x00>;
using Data2 = LeField<uint16_t, 0x04>;
using Data3 = LeField<uint16_t, 0x06>;
using Data4 = ByteField<0x08, 8>;
static_assert(Data4::kEnd == 16);
} // namespace guid

} // namespace kestrin::layout
