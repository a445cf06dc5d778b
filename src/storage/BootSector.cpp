#include "storage/BootSector.h"

#include "storage/BootSectorLayout.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

namespace fat_boot = layout::fat_boot;
namespace ntfs_boot = layout::ntfs_boot;
namespace exfat_boot = layout::exfat_boot;
using layout::BootSignature;
using layout::kBootSignatureValue;

// The jump instruction as NTFS and exFAT boot sectors start: a short jump and a NOP.
constexpr uint8_t kNopOpcode = 0x90;
// Sector sizes are multiples of this.
constexpr uint16_t kSectorUnit = 512;
constexpr uint8_t kNtfsDriveNumber = 0x80;
// The FAT32 fields a formatter always writes: the root directory's first cluster, the backup
// boot sector and the FSInfo sector.
constexpr uint32_t kFat32RootCluster = 2;
constexpr uint16_t kFat32BackupBootSector = 6;
constexpr uint16_t kFat32FsInfoSector = 1;
constexpr uint16_t kFat16RootEntries = 512;
// The FAT16 test looks at four bytes inside the file-system type text ("FAT16   "), from its
// fourth character on.
constexpr size_t kFat16TypeTestedFrom = 3, kFat16TypeTestedBytes = 4;
static_assert(kFat16TypeTestedFrom + kFat16TypeTestedBytes <= fat_boot::FsType16::kSize);

// FAT12 volumes have fewer clusters than this; FAT drivers tell the FAT width by it.
constexpr uint64_t kFat12ClusterLimit = 4085;
// A FAT12 boot sector starts with a short jump (and a NOP) or a near jump.
constexpr uint8_t kShortJumpOpcode = 0xEB, kNearJumpOpcode = 0xE9;
constexpr uint32_t kDirEntryBytes = 32;

// 2 to the power `exp`; 0 when it does not fit in 64 bits. Stored into narrower fields it then
// truncates like any out-of-range size would, and the engines reject a 0 size.
uint64_t PowerOfTwo(unsigned exp) { return exp < 64 ? uint64_t(1) << exp : 0; }

// 1, 2, 4, ..., 128.
bool IsPowerOfTwoUpTo128(uint8_t v) {
    for (unsigned e = 0; e <= 7; ++e)
        if (v == PowerOfTwo(e)) return true;
    return false;
}

// The value is 1, or non-zero and even. Used both for counts and, in the exFAT test, for a shift.
bool IsOneOrEven(uint8_t v) { return v == 1 || (v != 0 && (v & 1) == 0); }

bool IsKnownMediaDescriptor(uint8_t v) {
    switch (v) {
    case 0xFF: case 0xFE: case 0xFD: case 0xFC: case 0xFB: case 0xFA: case 0xF9: case 0xF0: case 0xF8:
        return true;
    default:
        return false;
    }
}

// A field, or 0 when the sector is too short for it.
template <class Field>
typename Field::Type Get(Bytes b) {
    return Field::Or(b, 0);
}

// Cluster count as FAT16 and FAT32 compute it: the sectors after the reserved area and the FATs,
// divided by the cluster size. The root directory of FAT16 is deliberately not subtracted. A
// volume shorter than its own metadata has no clusters (the subtraction would wrap).
uint32_t FatClusterCount(uint64_t length, Bytes s, uint32_t fatSize) {
    uint64_t meta = uint64_t(Get<fat_boot::ReservedSectors>(s)) + uint64_t(Get<fat_boot::FatCount>(s)) * fatSize;
    uint8_t spc = Get<fat_boot::SectorsPerCluster>(s);
    if (spc == 0 || length <= meta) return 0;
    return uint32_t((length - meta) / spc);
}

// The FAT sector size when it is one the volume can be read with (512 to 4096, a power of two);
// 0 otherwise, which leaves the media's in force.
uint16_t FatSectorSize(Bytes s) {
    uint16_t bps = Get<fat_boot::BytesPerSector>(s);
    return (bps == 512 || bps == 1024 || bps == 2048 || bps == 4096) ? bps : 0;
}

// Clusters of a volume with a root region, as FAT drivers count them: the sectors after the
// reserved area, the FATs and the root region, in whole clusters. 0 when the volume is shorter
// than its own metadata or has no cluster size.
uint64_t FatClusterCountAfterRoot(Bytes s) {
    uint64_t bps = Get<fat_boot::BytesPerSector>(s);
    uint8_t spc = Get<fat_boot::SectorsPerCluster>(s);
    if (bps == 0 || spc == 0) return 0;
    uint16_t total16 = Get<fat_boot::TotalSectors16>(s);
    uint64_t total = total16 ? total16 : Get<fat_boot::TotalSectors32>(s);
    uint64_t rootSectors = (uint64_t(Get<fat_boot::RootEntries>(s)) * kDirEntryBytes + bps - 1) / bps;
    uint64_t meta = uint64_t(Get<fat_boot::ReservedSectors>(s)) +
                    uint64_t(Get<fat_boot::FatCount>(s)) * Get<fat_boot::FatSize16>(s) + rootSectors;
    return total > meta ? (total - meta) / spc : 0;
}

} // namespace

bool IsFat12BootSector(CStorageMedia&, std::span<const uint8_t> s) {
    if (BootSignature::Read(s) != kBootSignatureValue) return false;
    auto jump = layout::JumpByte0::Read(s);
    if (!jump || (*jump != kShortJumpOpcode && *jump != kNearJumpOpcode)) return false;
    uint16_t bps = FatSectorSize(s);
    uint8_t spc = Get<fat_boot::SectorsPerCluster>(s);
    uint8_t fats = Get<fat_boot::FatCount>(s);
    uint16_t fatSize = Get<fat_boot::FatSize16>(s);
    if (bps == 0 || !IsPowerOfTwoUpTo128(spc) || Get<fat_boot::ReservedSectors>(s) == 0 || (fats != 1 && fats != 2) ||
        Get<fat_boot::RootEntries>(s) == 0 || fatSize == 0)
        return false;
    if (!IsKnownMediaDescriptor(Get<fat_boot::MediaDescriptor>(s))) return false;
    uint64_t clusters = FatClusterCountAfterRoot(s);
    if (clusters == 0 || clusters >= kFat12ClusterLimit) return false;
    // Two entries in three bytes; entries 0 and 1 are reserved.
    return uint64_t(fatSize) * bps * 2 / 3 >= clusters + 2;
}

bool IsFat32BootSector(CStorageMedia&, std::span<const uint8_t> s) {
    auto bps = fat_boot::BytesPerSector::Read(s);
    // A sector size of 0 passes on purpose; otherwise 512 or an even multiple of it.
    if (!bps || *bps % kSectorUnit != 0) return false;
    if (*bps != kSectorUnit && (*bps / kSectorUnit) % 2 != 0) return false;
    if (fat_boot::FatCount::Read(s) != uint8_t(2)) return false;
    auto spc = fat_boot::SectorsPerCluster::Read(s);
    if (!spc || !IsPowerOfTwoUpTo128(*spc)) return false;
    auto media = fat_boot::MediaDescriptor::Read(s);
    if (!media || !IsKnownMediaDescriptor(*media)) return false;
    if (!IsOneOrEven(*spc)) return false;
    if (fat_boot::RootCluster32::Read(s) != kFat32RootCluster) return false;
    if (fat_boot::BackupBootSector32::Read(s) != kFat32BackupBootSector) return false;
    if (fat_boot::FsInfoSector32::Read(s) != kFat32FsInfoSector) return false;
    return BootSignature::Read(s) == kBootSignatureValue;
}

bool IsFat16BootSector(CStorageMedia&, std::span<const uint8_t> s) {
    // The high half of the 32-bit total must be non-zero: volumes below 65,536 sectors fail.
    auto total32 = fat_boot::TotalSectors32::Read(s);
    if (!total32 || (*total32 >> 16) == 0) return false;
    Bytes type = fat_boot::FsType16::In(s);
    if (type.empty()) return false;
    bool allZero = true;
    for (uint8_t b : type.subspan(kFat16TypeTestedFrom, kFat16TypeTestedBytes)) allZero &= b == 0;
    if (allZero) return false;
    auto bps = fat_boot::BytesPerSector::Read(s);
    if (!bps || *bps % kSectorUnit != 0) return false;
    if (fat_boot::FatCount::Read(s) != uint8_t(2)) return false;
    auto spc = fat_boot::SectorsPerCluster::Read(s);
    if (!spc || !IsPowerOfTwoUpTo128(*spc)) return false;
    auto media = fat_boot::MediaDescriptor::Read(s);
    if (!media || !IsKnownMediaDescriptor(*media)) return false;
    if (!IsOneOrEven(*spc)) return false;
    if (fat_boot::RootEntries::Read(s) != kFat16RootEntries) return false;
    auto reserved = fat_boot::ReservedSectors::Read(s);
    if (!reserved || *reserved == 0) return false;
    return BootSignature::Read(s) == kBootSignatureValue;
}

bool IsNtfsBootSector(CStorageMedia&, std::span<const uint8_t> s) {
    // The test reads the fields up to the volume serial; the sector must hold them all.
    if (!Fits(s, 0, ntfs_boot::VolumeSerial::kEnd)) return false;
    const uint8_t* p = s.data();
    if (layout::JumpByte0::At(p) == 0 || layout::JumpByte1::At(p) == 0 || layout::JumpByte2::At(p) != kNopOpcode)
        return false;
    if (ntfs_boot::Unused32::At(p) != 0) return false;
    if (ntfs_boot::DriveNumber::At(p) != kNtfsDriveNumber || ntfs_boot::Reserved25::At(p) != 0) return false;
    if (ntfs_boot::BytesPerSector::At(p) & 1) return false;
    if (!IsOneOrEven(ntfs_boot::SectorsPerCluster::At(p))) return false;
    if (!IsOneOrEven(ntfs_boot::ClustersPerRecord::At(p)) || !IsOneOrEven(ntfs_boot::ClustersPerIndexBlock::At(p)))
        return false;
    for (uint64_t v : {ntfs_boot::MftCluster::At(p), ntfs_boot::MftMirrorCluster::At(p), ntfs_boot::TotalSectors::At(p)})
        if (v == 0 || v == ~uint64_t(0)) return false;
    return true;
}

bool IsExFatBootSector(CStorageMedia&, std::span<const uint8_t> s) {
    // The test reads up to the cluster shift; the sector must hold the fields up to there.
    if (!Fits(s, 0, exfat_boot::SectorsPerClusterShift::kEnd)) return false;
    const uint8_t* p = s.data();
    if (layout::JumpByte0::At(p) == 0 || layout::JumpByte2::At(p) != kNopOpcode) return false;
    if (exfat_boot::BytesPerSectorShift::At(p) == 0) return false;
    // The cluster shift is tested as if it were a count: shifts 3, 5 and 7 fail. Kept as is,
    // since which volumes are found depends on it.
    return IsOneOrEven(exfat_boot::SectorsPerClusterShift::At(p));
}

void FillFat16Record(std::span<const uint8_t> s, PartitionRecord& r) {
    r.bytesPerSector = FatSectorSize(s);
    r.rootEntries = Get<fat_boot::RootEntries>(s);
    r.sectorsPerCluster = Get<fat_boot::SectorsPerCluster>(s);
    r.fatSize = Get<fat_boot::FatSize16>(s);
    uint16_t total16 = Get<fat_boot::TotalSectors16>(s);
    r.length = total16 ? total16 : Get<fat_boot::TotalSectors32>(s);
    r.fatStart = Get<fat_boot::ReservedSectors>(s);
    r.secondArea = r.fatStart + r.fatSize;
    r.thirdArea = r.secondArea + r.fatSize;
    r.clusterCount = FatClusterCount(r.length, s, r.fatSize);
}

void FillFat32Record(std::span<const uint8_t> s, PartitionRecord& r) {
    r.bytesPerSector = FatSectorSize(s);
    r.sectorsPerCluster = Get<fat_boot::SectorsPerCluster>(s);
    r.fatSize = Get<fat_boot::FatSize32>(s);
    r.fatStart = Get<fat_boot::ReservedSectors>(s);
    r.secondArea = r.fatStart + r.fatSize;
    r.thirdArea = r.secondArea + r.fatSize;
    // The length is the table's (a GPT record's last sector enters the count as it is).
    r.clusterCount = FatClusterCount(r.length, s, r.fatSize);
}

void FillFat12Record(std::span<const uint8_t> s, PartitionRecord& r) {
    FillFat16Record(s, r);
    r.clusterCount = uint32_t(FatClusterCountAfterRoot(s));
}

void FillNtfsRecord(CStorageMedia& media, std::span<const uint8_t> s, PartitionRecord& r) {
    r.volumeSerial = Get<ntfs_boot::VolumeSerial>(s);
    uint16_t bootBps = Get<ntfs_boot::BytesPerSector>(s);
    uint32_t bps = (bootBps != 0 && bootBps % kSectorUnit == 0) ? bootBps : media.GetSectorSize();
    r.bytesPerSector = uint16_t(bps);
    r.sectorsPerCluster = Get<ntfs_boot::SectorsPerCluster>(s);
    r.bytesPerCluster = uint32_t(r.sectorsPerCluster) * bps;

    // A negative count means 2^|value| bytes; a positive one counts clusters.
    auto recordGeometry = [&](int8_t value, uint64_t& sizeBytes, uint8_t& sectors) {
        if (value < 0) {
            sizeBytes = PowerOfTwo(unsigned(-int(value)));
            sectors = uint8_t(bps ? sizeBytes / bps : 0);
        } else {
            sectors = uint8_t(unsigned(value) * r.sectorsPerCluster);
            sizeBytes = uint64_t(sectors) * bps;
        }
    };
    uint64_t indexSize = 0, mftSize = 0;
    recordGeometry(int8_t(Get<ntfs_boot::ClustersPerIndexBlock>(s)), indexSize, r.sectorsPerIndexRecord);
    r.indexRecordSize = uint32_t(indexSize);
    recordGeometry(int8_t(Get<ntfs_boot::ClustersPerRecord>(s)), mftSize, r.sectorsPerMftRecord);
    r.mftRecordSize = uint16_t(mftSize);

    r.secondArea = Get<ntfs_boot::MftCluster>(s);
    r.thirdArea = Get<ntfs_boot::MftMirrorCluster>(s);
}

void FillExFatRecord(CStorageMedia& media, std::span<const uint8_t> s, PartitionRecord& r) {
    r.volumeSerial = Get<exfat_boot::VolumeSerial>(s);
    uint8_t bpsShift = Get<exfat_boot::BytesPerSectorShift>(s);
    uint64_t bps = bpsShift ? PowerOfTwo(bpsShift) : media.GetSectorSize();
    uint64_t spc = PowerOfTwo(Get<exfat_boot::SectorsPerClusterShift>(s));
    r.bytesPerSector = uint16_t(bps);
    r.sectorsPerCluster = uint32_t(spc);
    r.bytesPerCluster = uint32_t(bps * spc);
    r.clusterCount = Get<exfat_boot::ClusterCount>(s);
    // Cluster numbers start at 2, the first cluster of the heap.
    r.thirdArea = (uint64_t(Get<exfat_boot::RootCluster>(s)) - 2) * spc + Get<exfat_boot::ClusterHeapOffset>(s);
    r.fatStart = Get<exfat_boot::FatOffset>(s);
    r.fatSize = Get<exfat_boot::FatLength>(s);
}

} // namespace kestrin
