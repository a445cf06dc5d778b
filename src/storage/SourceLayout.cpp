#include "storage/SourceLayout.h"

#include <vector>

#include "storage/BootSector.h"
#include "storage/BootSectorLayout.h"
#include "storage/PartitionTable.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

namespace fat_boot = layout::fat_boot;
namespace exfat_boot = layout::exfat_boot;

constexpr size_t kBootBytes = layout::kBootSectorBytes;
// Largest sector size the media probe settles on.
constexpr uint32_t kMaxSectorSize = 66048;
constexpr char kNtfsName[8] = {'N', 'T', 'F', 'S', ' ', ' ', ' ', ' '};
constexpr char kExFatName[8] = {'E', 'X', 'F', 'A', 'T', ' ', ' ', ' '};
constexpr char kBitLockerName[8] = {'-', 'F', 'V', 'E', '-', 'F', 'S', '-'};
constexpr char kFat16TypePrefix[5] = {'F', 'A', 'T', '1', '6'};
constexpr uint32_t kFatDirEntryBytes = 32;
// FAT drivers decide the FAT type by the cluster count alone.
constexpr uint64_t kMinFat16Clusters = 4085, kMaxFat16Clusters = 65525;

bool IsKnownMediaDescriptor(uint8_t v) { return v == 0xF0 || v >= 0xF8; }

// A FAT16 boot sector judged by its own fields, without the two rules that make
// IsFat16BootSector reject small volumes (a non-zero high half of the 32-bit total, exactly 512
// root entries). The FAT type follows from the cluster count, as FAT drivers decide it, unless
// the type text says FAT16.
bool LooksLikeFat16Volume(Bytes s) {
    if (layout::BootSignature::Read(s) != layout::kBootSignatureValue) return false;
    uint16_t bps = fat_boot::BytesPerSector::Or(s, 0);
    if (bps != 512 && bps != 1024 && bps != 2048 && bps != 4096) return false;
    uint8_t spc = fat_boot::SectorsPerCluster::Or(s, 0);
    if (spc == 0 || (spc & (spc - 1)) != 0) return false;
    uint16_t reserved = fat_boot::ReservedSectors::Or(s, 0);
    uint8_t fats = fat_boot::FatCount::Or(s, 0);
    uint16_t rootEntries = fat_boot::RootEntries::Or(s, 0);
    uint16_t fatSize = fat_boot::FatSize16::Or(s, 0);
    uint16_t total16 = fat_boot::TotalSectors16::Or(s, 0);
    uint64_t total = total16 ? total16 : fat_boot::TotalSectors32::Or(s, 0);
    if (reserved == 0 || (fats != 1 && fats != 2) || rootEntries == 0 || fatSize == 0 || total == 0) return false;
    if (!IsKnownMediaDescriptor(fat_boot::MediaDescriptor::Or(s, 0))) return false;
    if (MatchAt(s, fat_boot::FsType16::kOffset, kFat16TypePrefix, sizeof kFat16TypePrefix)) return true;
    uint64_t rootSectors = (uint64_t(rootEntries) * kFatDirEntryBytes + bps - 1) / bps;
    uint64_t meta = reserved + uint64_t(fats) * fatSize + rootSectors;
    if (total <= meta) return false;
    uint64_t clusters = (total - meta) / spc;
    return clusters >= kMinFat16Clusters && clusters < kMaxFat16Clusters;
}

// exFAT by its name and sane shifts: sectors of 512 to 4,096 bytes, clusters up to 32 MiB.
bool LooksLikeExFatVolume(Bytes s) {
    constexpr uint8_t kMinSectorShift = 9, kMaxSectorShift = 12, kMaxClusterShift = 25;
    if (!exfat_boot::FileSystemName::Is(s, kExFatName) ||
        layout::BootSignature::Read(s) != layout::kBootSignatureValue)
        return false;
    uint8_t bpsShift = exfat_boot::BytesPerSectorShift::Or(s, 0);
    uint8_t spcShift = exfat_boot::SectorsPerClusterShift::Or(s, 0xFF);
    return bpsShift >= kMinSectorShift && bpsShift <= kMaxSectorShift && spcShift <= kMaxClusterShift - bpsShift;
}

} // namespace

const char* LayoutName(Layout layout) {
    switch (layout) {
    case Layout::Mbr: return "mbr";
    case Layout::Gpt: return "gpt";
    case Layout::Ldm: return "ldm";
    case Layout::Volume: return "volume";
    default: return "none";
    }
}

const char* TableTypeName(TableType type) {
    switch (type) {
    case TableType::Data: return "data";
    case TableType::Linux: return "linux";
    case TableType::LinuxSwap: return "swap";
    case TableType::LinuxLvm: return "lvm";
    case TableType::EfiSystem: return "efi";
    case TableType::BitLocker: return "bitlocker";
    case TableType::AppleHfs: return "apple-hfs";
    case TableType::AppleApfs: return "apple-apfs";
    case TableType::Reserved: return "reserved";
    case TableType::Other: return "other";
    default: return "";
    }
}

const char* FsKindName(FsKind fsKind) {
    switch (fsKind) {
    case FsKind::Fat16: return "FAT16";
    case FsKind::Fat32: return "FAT32";
    case FsKind::Ntfs: return "NTFS";
    case FsKind::ExFat: return "exFAT";
    case FsKind::Fat12: return "FAT12";
    default: return "unknown";
    }
}

std::optional<PartitionRecord> RecogniseVolume(CStorageMedia& media, std::span<const uint8_t> s, uint64_t length) {
    PartitionRecord r;
    r.length = length;
    r.partitionFlag = PartitionFlag::Validated;
    // NTFS and exFAT also need their name: the NTFS test alone and, even more, the exFAT test
    // alone (three bytes and two shifts) also pass some MBR boot code.
    if (layout::OemName::Is(s, kNtfsName) && IsNtfsBootSector(media, s)) {
        r.fsKind = FsKind::Ntfs;
        FillNtfsRecord(media, s, r);
        return r;
    }
    bool exFatStrict = exfat_boot::FileSystemName::Is(s, kExFatName) && IsExFatBootSector(media, s);
    if (exFatStrict || LooksLikeExFatVolume(s)) {
        r.fsKind = FsKind::ExFat;
        if (!exFatStrict) r.partitionFlag = PartitionFlag::TableOnly;
        FillExFatRecord(media, s, r);
        return r;
    }
    if (IsFat32BootSector(media, s)) {
        r.fsKind = FsKind::Fat32;
        FillFat32Record(s, r);
        return r;
    }
    bool fat16Strict = IsFat16BootSector(media, s);
    if (fat16Strict || LooksLikeFat16Volume(s)) {
        r.fsKind = FsKind::Fat16;
        if (!fat16Strict) r.partitionFlag = PartitionFlag::TableOnly;
        FillFat16Record(s, r);
        return r;
    }
    if (IsFat12BootSector(media, s)) {
        r.fsKind = FsKind::Fat12;
        FillFat12Record(s, r);
        return r;
    }
    return std::nullopt;
}

Layout ReadSourceLayout(CPhysicalDisk& disk) {
    auto& list = disk.Partitions();
    if (list.empty()) list.resize(1);
    disk.SecondPartitions().clear();
    disk.OtherPartitions().clear();
    uint32_t ss = disk.GetSectorSize();
    if (ss < kBootBytes || ss > kMaxSectorSize) return Layout::None;

    // A volume image must be recognised before the table walk: a volume's boot sector ends in
    // the same 0xAA55 signature as an MBR, and its boot code lies exactly where the partition
    // entries would be, so the walk would read that code as a table and list garbage.
    std::vector<uint8_t> buf(ss, 0);
    if (disk.GetSectorCount() > 0) disk.ReadSectors(buf.data(), ss, 0, true);
    if (auto volume = RecogniseVolume(disk, Bytes(buf.data(), kBootBytes), disk.GetSectorCount())) {
        list.resize(1);
        list[0] = PartitionRecord{};
        list.push_back(*volume);
        return Layout::Volume;
    }

    Layout layout = Layout::None;
    std::vector<GptUnrecognisedEntry> unrecognised;
    std::vector<PartitionRecord> others;
    ReadPartitionTable(disk, &layout, &unrecognised, &others);
    // GPT entries the strict tests reject are still listed when their boot sector is clearly a
    // volume: an exFAT volume with 8-sector clusters (4 KiB on 512-byte sectors, a common
    // default) fails the exFAT test's shift rule, and would otherwise be invisible.
    for (const auto& e : unrecognised) {
        std::fill(buf.begin(), buf.end(), 0);
        if (e.firstSector >= disk.GetSectorCount()) continue;
        disk.ReadSectors(buf.data(), ss, e.firstSector, true);
        if (auto r = RecogniseVolume(disk, Bytes(buf.data(), kBootBytes), e.lastSector)) {
            r->startSector = e.firstSector;
            // GPT records keep the entry's last sector (a FAT16 fill put its own total there).
            r->length = e.lastSector;
            r->partitionFlag = PartitionFlag::TableOnly;
            r->tableType = TableType::Data;
            disk.SecondPartitions().push_back(*r);
        } else if (e.lastSector >= e.firstSector) {
            // Still a range of the disk (an encrypted or wiped volume): listed with the others.
            PartitionRecord o;
            o.startSector = e.firstSector;
            o.length = e.lastSector;
            o.partitionFlag = PartitionFlag::TableOnly;
            o.tableType = TableType::Data;
            others.push_back(o);
        }
    }
    // Another system's partition may still hold a volume read here (an EFI system partition is
    // FAT): it is then listed with that file system, position and type from the table.
    for (PartitionRecord& o : others) {
        std::fill(buf.begin(), buf.end(), 0);
        if (o.startSector >= disk.GetSectorCount()) continue;
        disk.ReadSectors(buf.data(), ss, o.startSector, true);
        if (layout::OemName::Is(Bytes(buf.data(), kBootBytes), kBitLockerName)) {
            o.tableType = TableType::BitLocker;
            continue;
        }
        uint64_t sectors = layout == Layout::Gpt ? o.length - o.startSector + 1 : o.length;
        if (auto r = RecogniseVolume(disk, Bytes(buf.data(), kBootBytes), sectors)) {
            PartitionRecord seen = *r;
            seen.startSector = o.startSector;
            seen.length = o.length;
            seen.partitionFlag = PartitionFlag::TableOnly;
            seen.tableType = o.tableType;
            o = seen;
        }
    }
    disk.OtherPartitions() = std::move(others);
    return layout;
}

std::vector<PartitionRecord> ListPartitions(CPhysicalDisk& disk, Layout& layout) {
    layout = ReadSourceLayout(disk);
    const auto& table = disk.Partitions();
    std::vector<PartitionRecord> out;
    if (table.size() > 1) out.assign(table.begin() + 1, table.end());
    out.insert(out.end(), disk.SecondPartitions().begin(), disk.SecondPartitions().end());
    out.insert(out.end(), disk.OtherPartitions().begin(), disk.OtherPartitions().end());
    return out;
}

} // namespace kestrin
