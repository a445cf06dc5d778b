#include "storage/PartitionTable.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstring>
#include <limits>
#include <new>
#include <unordered_set>

#include "storage/BootSector.h"
#include "storage/Ldm.h"
#include "storage/LdmLayout.h"
#include "storage/PartitionLayout.h"
#include "storage/SourceLayout.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

namespace mbr = layout::mbr;
namespace mbr_entry = layout::mbr::entry;
namespace gpt_header = layout::gpt_header;
namespace gpt_entry = layout::gpt_entry;
namespace privhead = layout::ldm::privhead;

constexpr char kNtfsName[8] = {'N', 'T', 'F', 'S', ' ', ' ', ' ', ' '};
constexpr char kExFatName[8] = {'E', 'X', 'F', 'A', 'T', ' ', ' ', ' '};
// An encrypted volume's boot sector carries this where NTFS has its name.
constexpr char kBitLockerName[8] = {'-', 'F', 'V', 'E', '-', 'F', 'S', '-'};

// Only the first 512 bytes of a table sector are examined, whatever the sector size.
constexpr size_t kTableBytes = mbr::kTableBytes;

// The probe accepts sectors up to 66,048 bytes; anything else in the media is not a sector size
// a table can be read with.
constexpr uint32_t kMaxSectorSize = 66048;

// An extended-partition chain links each EBR to the next. A damaged or forged chain can point
// back at an earlier EBR (an endless loop) or keep pointing at new sectors; real disks carry at
// most a few dozen logical partitions, so the walk stops at a repeated sector, at the disk's end
// (nothing can be read there) and after this many links.
constexpr size_t kMaxEbrLinks = 1024;

// Partitioning tools write 128 entries of 128 bytes (16 KiB). A header can claim up to 2^32
// entries of up to 4 GiB each; the array read is bounded so a forged header cannot make us read
// and walk more than this.
constexpr uint64_t kMaxGptArrayBytes = 1 << 20;

// A GPT type GUID, matched against an entry's type field.
struct GptGuid {
    uint32_t data1;
    uint16_t data2, data3;
    std::array<uint8_t, 8> data4;
    bool Matches(Bytes entry) const {
        namespace guid = layout::guid;
        constexpr size_t at = gpt_entry::TypeGuid::kOffset;
        return guid::Data1::Read(entry, at) == data1 && guid::Data2::Read(entry, at) == data2 &&
               guid::Data3::Read(entry, at) == data3 && guid::Data4::Is(entry, data4.data(), at);
    }
};
constexpr GptGuid kBasicDataGuid{0xEBD0A0A2, 0xB9E5, 0x4433, {0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7}};
constexpr GptGuid kLdmMetadataGuid{0x5808C8AA, 0x7E8F, 0x42E0, {0x85, 0xD2, 0xE1, 0xE9, 0x04, 0x34, 0xCF, 0xB3}};
constexpr GptGuid kLdmDataGuid{0xAF9B60A0, 0x1431, 0x4F62, {0xBC, 0x68, 0x33, 0x11, 0x71, 0x4A, 0x69, 0xAD}};

// Type GUIDs of other file systems' partitions, which are listed but not read.
struct GptOtherType {
    GptGuid guid;
    TableType type;
};
constexpr std::array<GptOtherType, 8> kGptOtherTypes{{
    {{0x0FC63DAF, 0x8483, 0x4772, {0x8E, 0x79, 0x3D, 0x69, 0xD8, 0x47, 0x7D, 0xE4}}, TableType::Linux},
    {{0x0657FD6D, 0xA4AB, 0x43C4, {0x84, 0xE5, 0x09, 0x33, 0xC8, 0x4B, 0x4F, 0x4F}}, TableType::LinuxSwap},
    {{0xE6D6D379, 0xF507, 0x44C2, {0xA2, 0x3C, 0x23, 0x8F, 0x2A, 0x3D, 0xF9, 0x28}}, TableType::LinuxLvm},
    {{0xC12A7328, 0xF81F, 0x11D2, {0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B}}, TableType::EfiSystem},
    {{0x48465300, 0x0000, 0x11AA, {0xAA, 0x11, 0x00, 0x30, 0x65, 0x43, 0xEC, 0xAC}}, TableType::AppleHfs},
    {{0x7C3457EF, 0x0000, 0x11AA, {0xAA, 0x11, 0x00, 0x30, 0x65, 0x43, 0xEC, 0xAC}}, TableType::AppleApfs},
    {{0xE3C9E316, 0x0B5C, 0x4DB8, {0x81, 0x7D, 0xF9, 0x2D, 0xF0, 0x02, 0x15, 0xAE}}, TableType::Reserved},
    {{0x21686148, 0x6449, 0x6E6F, {0x74, 0x4E, 0x65, 0x65, 0x64, 0x45, 0x46, 0x49}}, TableType::Reserved},
}};

TableType GptOtherTypeOf(Bytes entry) {
    for (const auto& t : kGptOtherTypes)
        if (t.guid.Matches(entry)) return t.type;
    return TableType::Other;
}

bool IsZeroGuid(Bytes entry) {
    constexpr size_t at = gpt_entry::TypeGuid::kOffset;
    return std::all_of(entry.begin() + at, entry.begin() + at + 16, [](uint8_t b) { return b == 0; });
}

TableType MbrOtherTypeOf(uint8_t type) {
    switch (type) {
    case mbr::kTypeLinux: return TableType::Linux;
    case mbr::kTypeLinuxSwap: return TableType::LinuxSwap;
    case mbr::kTypeLinuxLvm: return TableType::LinuxLvm;
    case mbr::kTypeEfiSystem: return TableType::EfiSystem;
    case mbr::kTypeAppleHfs: return TableType::AppleHfs;
    default: return TableType::Other;
    }
}

// An entry of another file system is listed when it describes a range on the disk: empty slots,
// zero lengths and starts at the table itself or past the disk's end are garbage.
bool IsUsableRange(uint64_t first, uint64_t sectors, uint64_t tableSector, uint64_t diskEnd) {
    return sectors != 0 && first != tableSector && first < diskEnd;
}

// First sector past the end of the source: reads there return nothing. Unknown sizes do not
// bound anything.
uint64_t DiskEndSector(const CStorageMedia& media) {
    uint32_t ss = media.GetSectorSize();
    if (ss && media.ByteSize()) return media.ByteSize() / ss;
    uint64_t end = media.GetFirstSector() + media.GetSectorCount();
    return end >= media.GetFirstSector() && end ? end : std::numeric_limits<uint64_t>::max();
}

// One sector into `buf`, which is zeroed first: a failed or short read leaves zeros, and zeros
// fail every signature and boot-sector test, which is how a bad read ends a walk quietly.
bool ReadOneSector(CStorageMedia& media, std::vector<uint8_t>& buf, uint64_t sector, uint64_t diskEnd) {
    std::fill(buf.begin(), buf.end(), 0);
    if (sector >= diskEnd) return false;
    return media.ReadSectors(buf.data(), uint32_t(buf.size()), sector, true);
}

// The first of the four slots in use, or kEntryCount when all are empty.
size_t FirstSlotInUse(Bytes table) {
    for (size_t i = 0; i < mbr::kEntryCount; ++i)
        if (mbr_entry::Type::Or(table, mbr::kTypeEmpty, mbr::EntryOffset(i)) != mbr::kTypeEmpty) return i;
    return mbr::kEntryCount;
}

// A table sector: the boot signature and at least one slot in use, whichever it is (a partition
// deleted from the first slot leaves the others as they were). Anything else ends the walk.
bool HoldsTable(Bytes table) {
    return mbr::Signature::Read(table) == layout::kBootSignatureValue && FirstSlotInUse(table) < mbr::kEntryCount;
}

bool IsExtendedType(uint8_t type) {
    return type == mbr::kTypeExtended || type == mbr::kTypeExtendedLba || type == mbr::kTypeExtendedLinux;
}

// The boot-sector test and fill of an MBR data type; FsKind::None for types that are not data.
struct MbrDataType {
    FsKind kind;
    bool (*test)(CStorageMedia&, std::span<const uint8_t>);
};
MbrDataType DataTypeOf(uint8_t type) {
    switch (type) {
    // exFAT in an NTFS slot is not tried: NTFS, flag 1.
    case mbr::kTypeNtfs: return {FsKind::Ntfs, IsNtfsBootSector};
    case mbr::kTypeFat32: case mbr::kTypeFat32Lba: return {FsKind::Fat32, IsFat32BootSector};
    case mbr::kTypeFat16Small: case mbr::kTypeFat16: case mbr::kTypeFat16Lba: return {FsKind::Fat16, IsFat16BootSector};
    case mbr::kTypeFat12: return {FsKind::Fat12, IsFat12BootSector};
    default: return {FsKind::None, nullptr};
    }
}

void FillByKind(CStorageMedia& media, Bytes boot, PartitionRecord& r) {
    switch (r.fsKind) {
    case FsKind::Fat16: FillFat16Record(boot, r); break;
    case FsKind::Fat32: FillFat32Record(boot, r); break;
    case FsKind::Fat12: FillFat12Record(boot, r); break;
    case FsKind::Ntfs: FillNtfsRecord(media, boot, r); break;
    case FsKind::ExFat: FillExFatRecord(media, boot, r); break;
    default: break;
    }
}

// The MBR and its EBR chain. `table` holds sector 0, already checked.
void WalkMbrChain(CPhysicalDisk& disk, std::array<uint8_t, kTableBytes> table, std::vector<uint8_t>& buf,
                  uint64_t diskEnd, std::vector<PartitionRecord>* others) {
    auto& list = disk.Partitions();
    list[0] = PartitionRecord{};
    uint64_t current = 0, next = 0, extendedBase = 0;
    std::unordered_set<uint64_t> visited{0};
    for (size_t links = 0;; ++links) {
        for (size_t i = 0; i < mbr::kEntryCount; ++i) {
            const uint8_t* e = table.data() + mbr::EntryOffset(i);
            uint8_t type = mbr_entry::Type::At(e);
            uint32_t start = mbr_entry::FirstLba::At(e);
            if (IsExtendedType(type)) {
                // Every link is relative to the first extended partition; the last one wins.
                next = start + extendedBase;
                continue;
            }
            MbrDataType data = DataTypeOf(type);
            if (!data.test) {
                uint32_t count = mbr_entry::SectorCount::At(e);
                if (others && type != mbr::kTypeEmpty && IsUsableRange(start + current, count, current, diskEnd)) {
                    PartitionRecord r;
                    r.startSector = start + current;
                    r.length = count;
                    r.partitionFlag = PartitionFlag::TableOnly;
                    r.tableType = MbrOtherTypeOf(type);
                    others->push_back(r);
                }
                continue;
            }
            PartitionRecord r;
            r.startSector = start + current; // data partitions are relative to their own table
            r.length = mbr_entry::SectorCount::At(e);
            r.fsKind = data.kind;
            r.partitionFlag = PartitionFlag::TableOnly;
            r.tableType = TableType::Data;
            ReadOneSector(disk, buf, r.startSector, diskEnd);
            Bytes boot(buf.data(), kTableBytes);
            if (data.test(disk, boot)) {
                r.partitionFlag = PartitionFlag::Validated;
                FillByKind(disk, boot, r);
            } else if (layout::OemName::Is(boot, kBitLockerName)) {
                // An encrypted volume in an NTFS slot: its contents cannot be read as NTFS.
                r.fsKind = FsKind::None;
                r.tableType = TableType::BitLocker;
            }
            list.push_back(r);
        }
        if (extendedBase == 0) extendedBase = next;
        current = next;
        next = 0;
        // A table without an extended entry ends the chain.
        if (current == 0 || current >= diskEnd || links + 1 >= kMaxEbrLinks || !visited.insert(current).second)
            break;
        ReadOneSector(disk, buf, current, diskEnd);
        Bytes t(buf.data(), kTableBytes);
        if (!HoldsTable(t)) break;
        std::copy_n(buf.begin(), kTableBytes, table.begin());
    }
}

// A dynamic disk behind an MBR: find the private header, check it, read its database.
void ReadMbrDynamicDiskAt(CPhysicalDisk& disk, std::vector<uint8_t>& buf, uint64_t diskEnd) {
    ReadOneSector(disk, buf, privhead::kMbrSector, diskEnd);
    if (!privhead::Magic::Is(buf, privhead::kMagic)) {
        // The second place looked at is one past the media's range (first + count); on a whole
        // disk that is past its end, so only a media narrowed below the device finds it there.
        ReadOneSector(disk, buf, disk.GetFirstSector() + disk.GetSectorCount(), diskEnd);
        if (!privhead::Magic::Is(buf, privhead::kMagic)) return;
    }
    // The buffer holds a whole sector, at least 512 bytes.
    static_assert(privhead::kBytes <= kTableBytes);
    const uint8_t* h = buf.data();
    uint64_t diskStart = privhead::LogicalDiskStart::At(h);
    uint64_t diskSize = privhead::LogicalDiskSize::At(h);
    uint64_t configStart = privhead::ConfigStart::At(h);
    uint64_t configSize = privhead::ConfigSize::At(h);
    if (configSize != privhead::kConfigSectors || diskSize == 0) return;
    // The logical disk must end before the configuration starts (checked without overflow).
    if (diskStart > configStart || diskSize > configStart - diskStart) return;
    ReadMbrDynamicDisk(disk, Bytes(h, privhead::kBytes));
}

} // namespace

bool ReadPartitionTable(CPhysicalDisk& disk, Layout* layout, std::vector<GptUnrecognisedEntry>* unrecognised,
                        std::vector<PartitionRecord>* others) {
    if (layout) *layout = Layout::None;
    auto& list = disk.Partitions();
    if (list.empty()) return false;
    list.resize(1);
    uint32_t ss = disk.GetSectorSize();
    if (ss < kTableBytes || ss > kMaxSectorSize) return true;
    uint64_t diskEnd = DiskEndSector(disk);
    try {
        std::vector<uint8_t> buf(ss);
        ReadOneSector(disk, buf, 0, diskEnd);
        Bytes t(buf.data(), kTableBytes);
        if (!HoldsTable(t)) return true;
        // The first slot in use says which kind of table this is.
        const uint8_t* firstEntry = t.data() + mbr::EntryOffset(FirstSlotInUse(t));
        uint8_t firstType = mbr_entry::Type::At(firstEntry);

        if (firstType == mbr::kTypeGptProtective) {
            if (layout) *layout = Layout::Gpt;
            // The header lies at the protective entry's start (normally 1), relative to sector 0.
            uint64_t headerSector = mbr_entry::FirstLba::At(firstEntry);
            ReadOneSector(disk, buf, headerSector, diskEnd);
            if (!gpt_header::Signature::Is(buf, gpt_header::kSignature)) return true;
            std::array<uint8_t, gpt_header::kHeaderBytes> header;
            std::copy_n(buf.begin(), gpt_header::kHeaderBytes, header.begin());
            ReadGptEntries(disk, header, unrecognised, others);
            return true;
        }
        if (firstType == mbr::kTypeDynamicDisk) {
            if (layout) *layout = Layout::Ldm;
            ReadMbrDynamicDiskAt(disk, buf, diskEnd);
            return true;
        }
        if (layout) *layout = Layout::Mbr;
        std::array<uint8_t, kTableBytes> table;
        std::copy_n(buf.begin(), kTableBytes, table.begin());
        WalkMbrChain(disk, table, buf, diskEnd, others);
    } catch (const std::bad_alloc&) {
        // The walk ends; records already appended stay.
    }
    return !list.empty();
}

bool ReadGptEntries(CPhysicalDisk& disk, std::span<const uint8_t> header, std::vector<GptUnrecognisedEntry>* unrecognised,
                    std::vector<PartitionRecord>* others) {
    auto arrayStart = gpt_header::EntryArrayLba::Read(header);
    auto entryCount = gpt_header::EntryCount::Read(header);
    auto entrySize = gpt_header::EntrySize::Read(header);
    if (!arrayStart || !entryCount || !entrySize) return false;
    // Entries are 128 bytes or a multiple; a size of 0 would never advance the walk.
    if (*entrySize == 0 || *entrySize % gpt_entry::kEntryBytes != 0) return false;
    uint32_t ss = disk.GetSectorSize();
    if (ss < kTableBytes || ss > kMaxSectorSize) return false;
    uint64_t diskEnd = DiskEndSector(disk);
    if (*arrayStart >= diskEnd) return true;

    // Both factors are below 2^32, so the product fits in 64 bits. The array is cut at the
    // disk's end and at a sane maximum, then to whole entries.
    uint64_t arrayBytes = uint64_t(*entryCount) * *entrySize;
    uint64_t sectorsLeft = diskEnd - *arrayStart;
    if (sectorsLeft < kMaxGptArrayBytes / ss + 1) arrayBytes = std::min(arrayBytes, sectorsLeft * ss);
    arrayBytes = std::min(arrayBytes, kMaxGptArrayBytes);
    arrayBytes -= arrayBytes % *entrySize;
    if (arrayBytes == 0) return true;

    std::vector<uint8_t> array, buf;
    try {
        // Whole sectors, as unbuffered devices require; one read for the whole array.
        array.assign((arrayBytes + ss - 1) / ss * ss, 0);
        buf.assign(ss, 0);
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (!disk.ReadSectors(array.data(), uint32_t(array.size()), *arrayStart, true))
        std::fill(array.begin(), array.end(), 0);

    auto& list = disk.Partitions();
    uint64_t metadataStart = 0, metadataSectors = 0;
    for (uint64_t at = 0; at < arrayBytes; at += *entrySize) {
        // Each entry lies whole inside the array (at least 128 bytes of it).
        Bytes entry(array.data() + at, gpt_entry::kEntryBytes);
        uint64_t first = gpt_entry::FirstLba::At(entry.data());
        uint64_t last = gpt_entry::LastLba::At(entry.data());
        if (kLdmMetadataGuid.Matches(entry)) {
            metadataStart = first;
            metadataSectors = last - first + 1;
        } else if (kBasicDataGuid.Matches(entry)) {
            ReadOneSector(disk, buf, first, diskEnd);
            Bytes boot(buf.data(), kTableBytes);
            PartitionRecord r;
            r.startSector = first;
            r.length = last; // the last sector, not a count
            r.partitionFlag = PartitionFlag::Validated;
            r.tableType = TableType::Data;
            // NTFS and exFAT also need their name: their tests alone pass other boot sectors
            // (a FAT16 volume below 65,536 sectors passes the NTFS test).
            if (layout::OemName::Is(boot, kNtfsName) && IsNtfsBootSector(disk, boot)) r.fsKind = FsKind::Ntfs;
            else if (layout::exfat_boot::FileSystemName::Is(boot, kExFatName) && IsExFatBootSector(disk, boot))
                r.fsKind = FsKind::ExFat;
            else if (IsFat32BootSector(disk, boot)) r.fsKind = FsKind::Fat32;
            else if (IsFat16BootSector(disk, boot)) r.fsKind = FsKind::Fat16;
            if (r.fsKind == FsKind::None) {
                if (unrecognised) unrecognised->push_back({first, last});
                continue;
            }
            FillByKind(disk, boot, r);
            list.push_back(r);
        } else if (kLdmDataGuid.Matches(entry)) {
            // Without its metadata entry seen first, a data entry ends the walk: the array's
            // order matters, and entries behind it are not examined.
            if (metadataSectors != privhead::kConfigSectors || last == 0 || first <= metadataStart) break;
            ReadGptDynamicDisk(disk, {metadataStart, metadataSectors, first});
        } else if (others && !IsZeroGuid(entry) && last >= first &&
                   IsUsableRange(first, last - first + 1, 0, diskEnd)) {
            PartitionRecord r;
            r.startSector = first;
            r.length = last; // the last sector, not a count
            r.partitionFlag = PartitionFlag::TableOnly;
            r.tableType = GptOtherTypeOf(entry);
            others->push_back(r);
        }
    }
    return true;
}

void DumpPartitionList(const CPhysicalDisk& disk, std::FILE* out) {
    for (const PartitionRecord& r : disk.Partitions()) {
        switch (r.fsKind) {
        case FsKind::Fat16: std::fputs("FAT16 partition==>\n", out); break;
        case FsKind::Fat32: std::fputs("FAT32 partition==>\n", out); break;
        case FsKind::Fat12: std::fputs("FAT12 partition==>\n", out); break;
        case FsKind::Ntfs: std::fputs("NTFS partition==>\n", out); break;
        // An exFAT record prints both headings.
        case FsKind::ExFat: std::fputs("ExFAT partition==>\nNTFS partition==>\n", out); break;
        default: break;
        }
        std::fprintf(out, "start sector:%" PRIu64 "\nEnd sector:%" PRIu64 "\nBPS:%u\nSPC:%u\n", r.startSector,
                     r.length, unsigned(r.bytesPerSector), unsigned(r.bytesPerCluster));
    }
}

} // namespace kestrin
