#include "session/VolumeLabel.h"

#include <vector>

#include "fs/exfat/ExFatLayout.h"
#include "fs/fat/FatLayout.h"
#include "fs/ntfs/NtfsLayout.h"
#include "fs/ntfs/NtfsRecord.h"
#include "storage/BootSectorLayout.h"
#include "storage/PartitionRecord.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

namespace fat_boot = layout::fat_boot;
namespace exfat_boot = layout::exfat_boot;
namespace ntfs_boot = layout::ntfs_boot;
namespace fat_dir = layout::fat_dir;
namespace exfat_dir = layout::exfat_dir;
namespace exfat_label = layout::exfat_label;
namespace file_record = layout::ntfs::file_record;
namespace resident = layout::ntfs::resident;

// Nothing read for a label is larger than one big cluster or MFT record.
constexpr uint64_t kMaxRead = 64 * 1024;
// The $Volume record's number.
constexpr uint64_t kVolumeRecord = 3;
// FAT: the boot sector's label follows this extended boot signature.
constexpr uint8_t kFatExtendedSignature = 0x29;

// `len` bytes at byte `offset` of the volume starting at media sector `first`; empty on a failed
// read or a range past the media.
std::vector<uint8_t> ReadVolumeBytes(CStorageMedia& media, uint64_t first, uint64_t offset, uint64_t len) {
    uint32_t ss = media.GetSectorSize();
    if (!ss || !len || len > kMaxRead) return {};
    uint64_t sector = offset / ss, skip = offset % ss;
    uint64_t count = (skip + len + ss - 1) / ss;
    // The media's sector count is that of the selected partition, so the source's size bounds
    // the read; a short read at its end leaves zeros, which parse as nothing.
    if (first > UINT64_MAX / ss - sector) return {};
    if (media.ByteSize() && (first + sector) * ss >= media.ByteSize()) return {};
    std::vector<uint8_t> buf(count * ss);
    if (!media.ReadSectors(buf.data(), uint32_t(buf.size()), first + sector, true)) return {};
    return std::vector<uint8_t>(buf.begin() + long(skip), buf.begin() + long(skip + len));
}

bool PowerOfTwo(uint64_t v) { return v && !(v & (v - 1)); }

// An 11-byte FAT label: printable ASCII kept, other bytes taken as Latin-1, trailing blanks cut.
std::u16string FatLabel(Bytes label) {
    if (label.empty()) return {};
    std::u16string s;
    for (uint8_t c : label) s += char16_t(c);
    while (!s.empty() && (s.back() == u' ' || s.back() == 0)) s.pop_back();
    if (s == u"NO NAME") return {};
    for (char16_t c : s)
        if (c < 0x20) return {};
    return s;
}

// The label entry of a FAT directory: not deleted, not a long-name part, volume-label bit set.
std::u16string FatRootLabel(Bytes dir) {
    for (size_t at = 0; Fits(dir, at, fat_dir::kEntryBytes); at += fat_dir::kEntryBytes) {
        const uint8_t* e = dir.data() + at;
        uint8_t first = fat_dir::Status::At(e), attr = fat_dir::Attributes::At(e);
        if (first == fat_dir::kEndOfFolder) break;
        if (first == fat_dir::kDeletedMark || (attr & fat_dir::kAttrLongName) == fat_dir::kAttrLongName) continue;
        if ((attr & fat_dir::kAttrVolumeLabel) && !(attr & fat_dir::kAttrFolder))
            return FatLabel(fat_dir::Name83::In(dir, at));
    }
    return {};
}

std::u16string ReadFatLabel(CStorageMedia& media, uint64_t first, Bytes boot, bool fat32) {
    uint32_t bps = fat_boot::BytesPerSector::Or(boot, 0), spc = fat_boot::SectorsPerCluster::Or(boot, 0);
    uint32_t reserved = fat_boot::ReservedSectors::Or(boot, 0), fats = fat_boot::FatCount::Or(boot, 0);
    if (!PowerOfTwo(bps) || bps < 512 || bps > 4096 || !PowerOfTwo(spc)) return {};
    std::vector<uint8_t> dir;
    if (fat32) {
        uint64_t fatSize = fat_boot::FatSize32::Or(boot, 0), root = fat_boot::RootCluster32::Or(boot, 0);
        if (root >= 2) {
            uint64_t sector = reserved + fats * fatSize + (root - 2) * spc;
            dir = ReadVolumeBytes(media, first, sector * bps, std::min<uint64_t>(uint64_t(spc) * bps, kMaxRead));
        }
    } else {
        uint64_t fatSize = fat_boot::FatSize16::Or(boot, 0), entries = fat_boot::RootEntries::Or(boot, 0);
        uint64_t sector = reserved + fats * fatSize;
        dir = ReadVolumeBytes(media, first, sector * bps, std::min<uint64_t>(entries * fat_dir::kEntryBytes, kMaxRead));
    }
    std::u16string label = FatRootLabel(dir);
    if (!label.empty()) return label;
    // The boot sector's copy, behind the extended boot signature.
    uint8_t sig = fat32 ? fat_boot::ExtendedSignature32::Or(boot, 0) : fat_boot::ExtendedSignature16::Or(boot, 0);
    if (sig == kFatExtendedSignature)
        return FatLabel(fat32 ? fat_boot::VolumeLabel32::In(boot) : fat_boot::VolumeLabel16::In(boot));
    return {};
}

std::u16string ReadExFatLabel(CStorageMedia& media, uint64_t first, Bytes boot) {
    uint32_t bpsShift = exfat_boot::BytesPerSectorShift::Or(boot, 0);
    uint32_t spcShift = exfat_boot::SectorsPerClusterShift::Or(boot, 0);
    uint64_t heap = exfat_boot::ClusterHeapOffset::Or(boot, 0), root = exfat_boot::RootCluster::Or(boot, 0);
    if (bpsShift < 9 || bpsShift > 12 || spcShift > 25 - bpsShift || root < 2) return {};
    uint64_t at = (heap + ((root - 2) << spcShift)) << bpsShift;
    std::vector<uint8_t> dir = ReadVolumeBytes(media, first, at, std::min<uint64_t>(1ull << (bpsShift + spcShift), kMaxRead));
    Bytes d(dir);
    for (size_t e = 0; Fits(d, e, exfat_dir::kEntryBytes); e += exfat_dir::kEntryBytes) {
        const uint8_t* entry = d.data() + e;
        uint8_t type = exfat_dir::EntryType::At(entry);
        if (type == exfat_dir::kEndOfDirectory) break;
        if (type != exfat_dir::kTypeLabel) continue;
        size_t count = std::min<size_t>(exfat_label::CharacterCount::At(entry), exfat_label::kMaxUnits);
        std::u16string s;
        for (size_t i = 0; i < count; ++i) s += char16_t(Le16(entry + exfat_label::Units::kOffset + 2 * i));
        return s;
    }
    return {};
}

std::u16string ReadNtfsLabel(CStorageMedia& media, uint64_t first, Bytes boot) {
    uint32_t bps = ntfs_boot::BytesPerSector::Or(boot, 0), spc = ntfs_boot::SectorsPerCluster::Or(boot, 0);
    if (!PowerOfTwo(bps) || bps < 256 || bps > 4096) return {};
    // Large clusters are given as a negative power of two.
    uint64_t clusterSize = spc <= 0x80 ? uint64_t(spc) * bps : (spc >= 0xF4 ? 1ull << (256 - spc) : 0);
    if (!clusterSize || clusterSize > (1ull << 21)) return {};
    int8_t perRecord = int8_t(ntfs_boot::ClustersPerRecord::Or(boot, 0));
    uint64_t recordSize = perRecord > 0 ? uint64_t(perRecord) * clusterSize
                                        : (perRecord < 0 && perRecord >= -16 ? 1ull << -perRecord : 0);
    if (recordSize < 256 || recordSize > kMaxRead) return {};
    uint64_t mft = ntfs_boot::MftCluster::Or(boot, 0);
    if (!mft || mft > (UINT64_MAX / 2) / clusterSize) return {};
    std::vector<uint8_t> rec =
        ReadVolumeBytes(media, first, mft * clusterSize + kVolumeRecord * recordSize, recordSize);
    if (!CheckFileRecord(rec, uint32_t(recordSize))) return {};
    std::u16string label;
    ForEachAttribute(rec, [&](const NtfsAttr& a) {
        if (a.type != kAttrVolumeName || a.nonResident) return true;
        Bytes value = ResidentValue(rec, a);
        for (size_t i = 0; i + 1 < value.size(); i += 2) label += char16_t(Le16(value.data() + i));
        return false;
    });
    return label;
}

} // namespace

std::u16string ReadVolumeLabel(CStorageMedia& media, uint64_t firstSector, FsKind fsKind) {
    std::vector<uint8_t> boot = ReadVolumeBytes(media, firstSector, 0, layout::kBootSectorBytes);
    if (boot.size() < layout::kBootSectorBytes) return {};
    switch (fsKind) {
    case FsKind::Fat12:
    case FsKind::Fat16: return ReadFatLabel(media, firstSector, boot, false);
    case FsKind::Fat32: return ReadFatLabel(media, firstSector, boot, true);
    case FsKind::Ntfs: return ReadNtfsLabel(media, firstSector, boot);
    case FsKind::ExFat: return ReadExFatLabel(media, firstSector, boot);
    default: return {};
    }
}

} // namespace kestrin
