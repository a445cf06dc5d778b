#pragma once
// How a source is laid out, and the numbered partition list every front end shows.
//
// Usage: open or attach a CPhysicalDisk, then
//     Layout layout;
//     std::vector<PartitionRecord> parts = ListPartitions(disk, layout);
// parts[N - 1] is the partition that `--partition N` means everywhere. Select one with
// disk.SelectPartition(parts[N - 1], kind) before running an engine on it.
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "storage/CPhysicalDisk.h"
#include "storage/PartitionRecord.h"

namespace kestrin {

// None: no table and no volume at sector 0. Mbr, Gpt, Ldm: the kind of table the first MBR
// slot in use announces (Ldm is an MBR dynamic disk; a GPT dynamic disk stays Gpt). Volume: sector 0
// is itself a volume's boot sector (an image of one partition).
enum class Layout : uint8_t { None, Mbr, Gpt, Ldm, Volume };

// "none", "mbr", "gpt", "ldm", "volume".
const char* LayoutName(Layout layout);
// "FAT16", "FAT32", "NTFS", "exFAT", "FAT12" for kinds 1 to 5, "unknown" otherwise.
const char* FsKindName(FsKind fsKind);
// "data", "linux", "swap", "lvm", "efi", "bitlocker", "apple-hfs", "apple-apfs", "reserved",
// "other"; "" for records not from a table.
const char* TableTypeName(TableType type);

// When `sector` is a volume boot sector (NTFS, exFAT, FAT32, FAT16 or FAT12), the record of that volume
// starting at sector 0 with `sectorCount` as its length and its geometry filled. Broader than the
// four boot-sector tests: a FAT16 volume too small for IsFat16BootSector, or an exFAT volume whose
// cluster shift that test rejects, still counts; such records carry partition flag 1.
std::optional<PartitionRecord> RecogniseVolume(CStorageMedia& media, std::span<const uint8_t> sector,
                                               uint64_t sectorCount);

// Decides the layout of the whole source and fills disk.Partitions() behind its placeholder:
// with the one volume record for a volume image, else through ReadPartitionTable. GPT
// basic-data partitions that no boot-sector test accepts but RecogniseVolume does (exFAT with
// 8-sector clusters, small FAT16) are added to disk.SecondPartitions() with flag 1. The table's
// entries of other file systems, and GPT basic-data entries no test recognises, go to
// disk.OtherPartitions() with flag 1: FsKind::None, or the file system of a volume found at
// their start (a FAT EFI system partition).
Layout ReadSourceLayout(CPhysicalDisk& disk);

// ReadSourceLayout, then the entries numbered from 1: the table's records without the
// placeholder, in list order, then disk.SecondPartitions(), then disk.OtherPartitions(): the
// numbers of the file systems read here do not depend on what else the disk holds.
std::vector<PartitionRecord> ListPartitions(CPhysicalDisk& disk, Layout& layout);

} // namespace kestrin
