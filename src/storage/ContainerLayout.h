#pragma once
// The allocation tables of the sparse virtual-disk formats, as far as ContainerMap reads them:
// the headers that locate the tables, and the meaning of a table entry.
#include <cstdint>

#include "util/Bytes.h"

namespace kestrin::layout {

// QCOW2 header (big-endian). Version 3 adds the feature bits; both keep a two-level table: L1
// entries point at L2 tables, L2 entries at clusters.
namespace qcow {
using Magic = ByteField<0, 4>;
using Version = BeField<uint32_t, 4>;
using BackingFileOffset = BeField<uint64_t, 8>;
using ClusterBits = BeField<uint32_t, 20>;
using DiskSize = BeField<uint64_t, 24>;
using CryptMethod = BeField<uint32_t, 32>;
using L1Size = BeField<uint32_t, 36>;
using L1TableOffset = BeField<uint64_t, 40>;
constexpr size_t kHeaderV2Bytes = 72;
using IncompatibleFeatures = BeField<uint64_t, 72>; // version 3 only
constexpr size_t kHeaderV3Bytes = 104;
// Incompatible features that leave the tables as described here: the dirty bit and the choice
// of compression. Any other (corrupt, external data file, extended L2 entries) and the image is
// not mapped.
constexpr uint64_t kKnownIncompatible = (1u << 0) | (1u << 3);
constexpr uint32_t kMinClusterBits = 9, kMaxClusterBits = 21;
constexpr uint32_t kEntryBytes = 8;
// Bit 63 of L1 and L2 entries: the refcount is exactly one; bit 0 of an L2 entry: reads as zeros.
constexpr uint64_t kCopiedFlag = 1ull << 63;
constexpr uint64_t kZeroFlag = 1ull;
// Bits 9-55 of an L1 entry: the L2 table's offset in the file.
constexpr uint64_t kTableOffsetMask = 0x00FFFFFFFFFFFE00ull;
} // namespace qcow

// Hosted sparse extent header (little-endian), at the start of the extent file and, for a
// stream-optimised extent whose directory is written last, again in the footer.
namespace vmdk {
using Magic = ByteField<0, 4>;
using Version = LeField<uint32_t, 4>;
using Capacity = LeField<uint64_t, 12>;  // sectors
using GrainSize = LeField<uint64_t, 20>; // sectors
using GrainTableEntries = LeField<uint32_t, 44>;
using DirectoryOffset = LeField<uint64_t, 56>; // sectors
constexpr size_t kHeaderBytes = 512;
// The directory is in the footer: its header sits this far before the end of the file.
constexpr uint64_t kDirectoryAtEnd = UINT64_MAX;
constexpr uint64_t kFooterFromEnd = 1024;
constexpr uint32_t kEntryBytes = 4;
constexpr uint64_t kSectorBytes = 512;
} // namespace vmdk

// Dynamic VHD (big-endian): the footer (copied at byte 0) points at the dynamic header, which
// points at the block allocation table, one entry per block.
namespace vhd {
using FooterCookie = ByteField<0, 8>;
using DataOffset = BeField<uint64_t, 16>;
using CurrentSize = BeField<uint64_t, 48>;
using DiskType = BeField<uint32_t, 60>;
constexpr size_t kFooterBytes = 512;
constexpr uint32_t kDiskTypeDynamic = 3;
using HeaderCookie = ByteField<0, 8>;
using TableOffset = BeField<uint64_t, 16>;
using MaxTableEntries = BeField<uint32_t, 28>;
using BlockSize = BeField<uint32_t, 32>;
constexpr size_t kHeaderBytes = 1024;
constexpr uint32_t kEntryBytes = 4;
constexpr uint32_t kUnusedEntry = 0xFFFFFFFFu;
} // namespace vhd

} // namespace kestrin::layout
