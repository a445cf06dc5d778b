#pragma once
// The boot sectors of the file systems this program reads, field by field. The storage layer
// recognises volumes by them and the engines take their geometry from them, so they live here,
// below both.
#include <cstdint>

#include "util/Bytes.h"

namespace kestrin::layout {

// Every boot sector (and the MBR) ends with this signature at byte 510.
using BootSignature = LeField<uint16_t, 0x1FE>;
inline constexpr uint16_t kBootSignatureValue = 0xAA55;
inline constexpr size_t kBootSectorBytes = 512;
static_assert(BootSignature::kEnd == kBootSectorBytes);

// The jump instruction and the OEM name, common to all three.
using JumpByte0 = LeField<uint8_t, 0x00>;
using JumpByte1 = LeField<uint8_t, 0x01>;
using JumpByte2 = LeField<uint8_t, 0x02>;
using OemName = ByteField<0x03, 8>;

// BIOS parameter block of FAT12/16/32 (and the shared part NTFS keeps).
namespace fat_boot {
using BytesPerSector = LeField<uint16_t, 0x0B>;
using SectorsPerCluster = LeField<uint8_t, 0x0D>;
using ReservedSectors = LeField<uint16_t, 0x0E>;
using FatCount = LeField<uint8_t, 0x10>;
using RootEntries = LeField<uint16_t, 0x11>;
using TotalSectors16 = LeField<uint16_t, 0x13>;
using MediaDescriptor = LeField<uint8_t, 0x15>;
using FatSize16 = LeField<uint16_t, 0x16>;
using SectorsPerTrack = LeField<uint16_t, 0x18>;
using Heads = LeField<uint16_t, 0x1A>;
using HiddenSectors = LeField<uint32_t, 0x1C>;
using TotalSectors32 = LeField<uint32_t, 0x20>;
// FAT12/16 extended block.
using DriveNumber16 = LeField<uint8_t, 0x24>;
using ExtendedSignature16 = LeField<uint8_t, 0x26>;
using VolumeSerial16 = LeField<uint32_t, 0x27>;
using VolumeLabel16 = ByteField<0x2B, 11>;
using FsType16 = ByteField<0x36, 8>;
// FAT32 extended block.
using FatSize32 = LeField<uint32_t, 0x24>;
using ExtFlags32 = LeField<uint16_t, 0x28>;
using FsVersion32 = LeField<uint16_t, 0x2A>;
using RootCluster32 = LeField<uint32_t, 0x2C>;
using FsInfoSector32 = LeField<uint16_t, 0x30>;
using BackupBootSector32 = LeField<uint16_t, 0x32>;
using DriveNumber32 = LeField<uint8_t, 0x40>;
using ExtendedSignature32 = LeField<uint8_t, 0x42>;
using VolumeSerial32 = LeField<uint32_t, 0x43>;
using VolumeLabel32 = ByteField<0x47, 11>;
using FsType32 = ByteField<0x52, 8>;
static_assert(FsType32::kEnd <= kBootSectorBytes);
} // namespace fat_boot

namespace ntfs_boot {
using BytesPerSector = LeField<uint16_t, 0x0B>;
using SectorsPerCluster = LeField<uint8_t, 0x0D>;
using ReservedSectors = LeField<uint16_t, 0x0E>;
using MediaDescriptor = LeField<uint8_t, 0x15>;
using HiddenSectors = LeField<uint32_t, 0x1C>;
using Unused32 = LeField<uint32_t, 0x20>;     // zero on NTFS
using DriveNumber = LeField<uint8_t, 0x24>;   // 0x80
using Reserved25 = LeField<uint8_t, 0x25>;    // zero
using TotalSectors = LeField<uint64_t, 0x28>;
using MftCluster = LeField<uint64_t, 0x30>;
using MftMirrorCluster = LeField<uint64_t, 0x38>;
// A negative value is 2^-value bytes, a positive one counts clusters.
using ClustersPerRecord = LeField<uint8_t, 0x40>;
using ClustersPerIndexBlock = LeField<uint8_t, 0x44>;
using VolumeSerial = LeField<uint64_t, 0x48>;
using Checksum = LeField<uint32_t, 0x50>;
inline constexpr size_t kHeaderBytes = 0x54;
static_assert(Checksum::kEnd == kHeaderBytes);
} // namespace ntfs_boot

namespace exfat_boot {
using FileSystemName = ByteField<0x03, 8>;      // "EXFAT   "
using MustBeZero = ByteField<0x0B, 53>;
using PartitionOffset = LeField<uint64_t, 0x40>;
using VolumeLength = LeField<uint64_t, 0x48>;
using FatOffset = LeField<uint32_t, 0x50>;
using FatLength = LeField<uint32_t, 0x54>;
using ClusterHeapOffset = LeField<uint32_t, 0x58>;
using ClusterCount = LeField<uint32_t, 0x5C>;
using RootCluster = LeField<uint32_t, 0x60>;
using VolumeSerial = LeField<uint32_t, 0x64>;
using Revision = LeField<uint16_t, 0x68>;
using VolumeFlags = LeField<uint16_t, 0x6A>;
using BytesPerSectorShift = LeField<uint8_t, 0x6C>;
using SectorsPerClusterShift = LeField<uint8_t, 0x6D>;
using NumberOfFats = LeField<uint8_t, 0x6E>;
using DriveSelect = LeField<uint8_t, 0x6F>;
using PercentInUse = LeField<uint8_t, 0x70>;
inline constexpr size_t kHeaderBytes = 0x78;
static_assert(PercentInUse::kEnd <= kHeaderBytes);
} // namespace exfat_boot

} // namespace kestrin::layout
