#pragma once
// Boot-sector recognition for NTFS, exFAT, FAT32, FAT16 and FAT12, and the filling of a partition record
// with the geometry a recognised boot sector carries. The four tests are deliberately lenient in
// places (a FAT32 sector size of 0 passes, an exFAT cluster shift is treated like a count); those
// rules are part of how volumes are found and must not be tightened here. Code that later divides
// or loops by a filled field checks it at that point.
#include <cstdint>
#include <span>

#include "storage/CStorageMedia.h"
#include "storage/PartitionRecord.h"

namespace kestrin {

// Each test reads only the given bytes (one sector; fields outside the span make it fail).
bool IsNtfsBootSector(CStorageMedia& media, std::span<const uint8_t> sector);
bool IsExFatBootSector(CStorageMedia& media, std::span<const uint8_t> sector);
bool IsFat32BootSector(CStorageMedia& media, std::span<const uint8_t> sector);
// A FAT16 volume whose total sector count fits in 16 bits fails this test on purpose.
bool IsFat16BootSector(CStorageMedia& media, std::span<const uint8_t> sector);
// FAT12 is told by its cluster count, below 4085, as FAT drivers decide it: the sector must hold
// a sound parameter block (a jump, sector and cluster sizes, reserved sectors, one or two FATs
// large enough for the clusters, a root region and a known media byte). Tried after the other
// tests, which it does not change.
bool IsFat12BootSector(CStorageMedia& media, std::span<const uint8_t> sector);

// Fill a record's geometry from its boot sector. They set the fields of their file system only;
// kind, start and flag are the caller's. `record.length` must hold the table's length first:
// FAT16 replaces it with the boot sector's total, FAT32 computes its cluster count from it.
// Both record the boot sector's bytes per sector when it is 512 to 4096 (their area fields count
// sectors of that size); FAT16 also its root entry count.
void FillFat16Record(std::span<const uint8_t> sector, PartitionRecord& record);
void FillFat32Record(std::span<const uint8_t> sector, PartitionRecord& record);
// FAT12 as FAT16, with the root region left out of the cluster count.
void FillFat12Record(std::span<const uint8_t> sector, PartitionRecord& record);
// NTFS and exFAT fall back to the media's sector size when the boot sector gives none.
void FillNtfsRecord(CStorageMedia& media, std::span<const uint8_t> sector, PartitionRecord& record);
void FillExFatRecord(CStorageMedia& media, std::span<const uint8_t> sector, PartitionRecord& record);

} // namespace kestrin
