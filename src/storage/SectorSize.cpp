#include "storage/SectorSize.h"

#include <algorithm>
#include <array>
#include <vector>

#include "storage/BootSectorLayout.h"
#include "storage/PartitionLayout.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

namespace fat_boot = layout::fat_boot;
namespace ntfs_boot = layout::ntfs_boot;
namespace exfat_boot = layout::exfat_boot;
namespace mbr = layout::mbr;
namespace mbr_entry = layout::mbr::entry;

constexpr size_t kBootBytes = layout::kBootSectorBytes;
constexpr uint32_t kLargestSectorSize = 4096;
constexpr std::array<uint32_t, 4> kSectorSizes = {512, 1024, 2048, 4096};
constexpr char kNtfsName[8] = {'N', 'T', 'F', 'S', ' ', ' ', ' ', ' '};
constexpr char kExFatName[8] = {'E', 'X', 'F', 'A', 'T', ' ', ' ', ' '};

bool IsPowerOfTwo(uint32_t v) { return v != 0 && (v & (v - 1)) == 0; }

// Bytes read at `offset`, zeros where the source has none.
std::vector<uint8_t> ReadZeroFilled(ByteSource& source, uint64_t offset, size_t len) {
    std::vector<uint8_t> buf(len, 0);
    long long n = source.ReadAt(buf.data(), len, offset);
    if (n < 0) std::fill(buf.begin(), buf.end(), 0);
    return buf;
}

// The sector size a volume boot sector states, 0 when `s` is no boot sector this program reads
// or states no size it can read with. FAT sectors are judged by the fields every formatter
// writes, so that MBR boot code does not pass for one.
uint32_t BootSectorSize(Bytes s) {
    if (s.size() < kBootBytes || layout::BootSignature::Read(s) != layout::kBootSignatureValue) return 0;
    if (layout::OemName::Is(s, kNtfsName)) {
        uint32_t bps = ntfs_boot::BytesPerSector::Or(s, 0);
        return IsSupportedSectorSize(bps) ? bps : 0;
    }
    if (exfat_boot::FileSystemName::Is(s, kExFatName)) {
        uint8_t shift = exfat_boot::BytesPerSectorShift::Or(s, 0);
        return shift >= 9 && shift <= 12 ? uint32_t(1) << shift : 0;
    }
    uint32_t bps = fat_boot::BytesPerSector::Or(s, 0);
    uint8_t spc = fat_boot::SectorsPerCluster::Or(s, 0);
    uint8_t fats = fat_boot::FatCount::Or(s, 0);
    uint8_t media = fat_boot::MediaDescriptor::Or(s, 0);
    bool fatSize = fat_boot::FatSize16::Or(s, 0) != 0 || fat_boot::FatSize32::Or(s, 0) != 0;
    bool total = fat_boot::TotalSectors16::Or(s, 0) != 0 || fat_boot::TotalSectors32::Or(s, 0) != 0;
    if (!IsSupportedSectorSize(bps) || !IsPowerOfTwo(spc) || (fats != 1 && fats != 2) ||
        fat_boot::ReservedSectors::Or(s, 0) == 0 || (media != 0xF0 && media < 0xF8) || !fatSize || !total)
        return 0;
    return bps;
}

bool IsTableOnlyType(uint8_t type) {
    return type == mbr::kTypeEmpty || type == mbr::kTypeExtended || type == mbr::kTypeExtendedLba ||
           type == mbr::kTypeExtendedLinux || type == mbr::kTypeGptProtective || type == mbr::kTypeDynamicDisk;
}

// An MBR (signature checked by the caller) says nothing of its sector size; its first data entry
// does, through the boot sector it points at. 512 wins whenever that reading finds one.
uint32_t SizeFromMbrEntries(ByteSource& source, Bytes table) {
    for (size_t i = 0; i < mbr::kEntryCount; ++i) {
        const size_t at = mbr::EntryOffset(i);
        uint8_t type = mbr_entry::Type::Or(table, 0, at);
        uint32_t start = mbr_entry::FirstLba::Or(table, 0, at);
        if (IsTableOnlyType(type) || start == 0) continue;
        for (uint32_t size : kSectorSizes) {
            uint32_t declared = BootSectorSize(ReadZeroFilled(source, uint64_t(start) * size, kBootBytes));
            if (declared == 0) continue;
            // A volume on 512-byte sectors may itself declare larger ones; the table's own unit
            // is the one that found it.
            if (size == kSectorSizes[0]) return 0;
            if (declared == size) return size;
        }
        return 0;
    }
    return 0;
}

} // namespace

bool IsSupportedSectorSize(uint32_t bytes) {
    for (uint32_t s : kSectorSizes)
        if (bytes == s) return true;
    return false;
}

uint32_t DeclaredSectorSize(ByteSource& source) {
    // Sector 0 and the second sector at the largest size: one read answers the first two tests.
    std::vector<uint8_t> head = ReadZeroFilled(source, 0, kLargestSectorSize + kBootBytes);
    Bytes b(head);
    for (uint32_t size : kSectorSizes)
        if (layout::gpt_header::Signature::Is(b, layout::gpt_header::kSignature, size)) return size;
    Bytes boot = b.first(kBootBytes);
    if (uint32_t declared = BootSectorSize(boot)) return declared;
    if (mbr::Signature::Read(boot) == layout::kBootSignatureValue) return SizeFromMbrEntries(source, boot);
    return 0;
}

} // namespace kestrin
