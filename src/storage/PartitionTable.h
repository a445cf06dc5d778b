#pragma once
// Reading a disk's partition layout into its partition list: a classic MBR with its chain of
// extended boot records, a GPT behind a protective MBR, or a dynamic disk, which is recognised
// here and whose database the dynamic-disk reader (storage/Ldm.h) reads.
//
// Each data partition's first sector is read and tested with the boot-sector test of its type.
// A pass gives a record with partition flag 2 and the geometry filled in; an MBR entry whose test
// fails still gives a record of its type with flag 1 (position from the table only), except that
// an encrypted volume's boot sector in an NTFS slot gives FsKind::None. Records are
// appended behind the placeholder head in the order found and are never sorted or merged.
//
// Length field: MBR records carry the table's sector count (a validated FAT16 record the boot
// sector's total instead); GPT records carry the entry's last sector, not a count.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>
#include <vector>

#include "storage/CPhysicalDisk.h"

namespace kestrin {

enum class Layout : uint8_t; // storage/SourceLayout.h

// A GPT basic-data entry whose first sector passed none of the boot-sector tests.
struct GptUnrecognisedEntry {
    uint64_t firstSector = 0;
    uint64_t lastSector = 0;
};

// Rebuilds disk.Partitions() behind its head (element 0; the MBR path zeroes it). Reads absolute
// sectors through ReadSectors. `layout`, when given, receives the kind of table the first MBR
// slot in use announces (Mbr, Gpt, Ldm) or None when sector 0 holds no table (no signature, or
// all four slots empty). `unrecognised`, when
// given, receives the GPT basic-data entries that got no record. `others`, when given, receives
// the entries of other file systems (MBR types and GPT type GUIDs not read here: Linux, swap, EFI
// system, Apple, ...) as table-only records of FsKind::None with their table type; empty slots,
// zero lengths and ranges starting at the table or past the disk's end are left out. Returns true
// when the list head exists after the read.
bool ReadPartitionTable(CPhysicalDisk& disk, Layout* layout = nullptr,
                        std::vector<GptUnrecognisedEntry>* unrecognised = nullptr,
                        std::vector<PartitionRecord>* others = nullptr);

// Walks the entry array described by a GPT header (its first 92 bytes). Returns false when the
// header's array cannot be used (entry size 0 or not a multiple of 128, or no memory).
bool ReadGptEntries(CPhysicalDisk& disk, std::span<const uint8_t> header,
                    std::vector<GptUnrecognisedEntry>* unrecognised = nullptr,
                    std::vector<PartitionRecord>* others = nullptr);

// Diagnostic listing of the partition list, head first.
void DumpPartitionList(const CPhysicalDisk& disk, std::FILE* out = stdout);

} // namespace kestrin
