#include "fs/fat/CFatVolume.h"

#include <algorithm>
#include <cstring>

#include "fs/fat/FatLayout.h"
#include "storage/BootSector.h"
#include "storage/BootSectorLayout.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

using namespace layout;

// exFAT keeps a copy of its boot region twelve sectors after the main one.
constexpr uint64_t kExFatBackupBootSector = 12;
// exFAT sector sizes are 512 to 4096 bytes and clusters at most 32 MiB.
constexpr uint8_t kExFatMinSectorShift = 9, kExFatMaxSectorShift = 12, kExFatMaxClusterShift = 25;
constexpr char kExFatName[] = "EXFAT   ";
// Media that do not report a sector size are read in sectors of this size.
constexpr uint32_t kDefaultSectorBytes = 512;

// Geometry of a FAT12, FAT16 or FAT32 volume from its partition record: the FAT, the root region
// and the data area in sectors of the volume's own size (the media's when the record gives none);
// the highest cluster from the record's cluster count, clamped to what the FAT can hold. False
// when the record cannot describe a volume.
bool FatGeometryFromRecord(const PartitionRecord& r, FsKind kind, uint64_t volumeStart, uint64_t volumeEnd,
                           uint32_t mediaSectorSize, FatGeometry& g) {
    if (!IsFatKind(kind) || mediaSectorSize == 0 || r.sectorsPerCluster == 0 || r.fatSize == 0)
        return false;
    const uint64_t bps = r.bytesPerSector ? r.bytesPerSector : mediaSectorSize;
    g = {};
    g.fsKind = kind;
    g.mediaSectorSize = mediaSectorSize;
    g.volumeEnd = volumeEnd;
    g.clusterBytes = uint32_t(r.sectorsPerCluster * bps);
    g.fatStart = volumeStart + r.fatStart * bps;
    uint64_t third = volumeStart + r.thirdArea * bps;
    if (HasFatRootRegion(kind)) {
        uint64_t entries = r.rootEntries ? r.rootEntries : kFat16DefaultRootEntries;
        g.rootRegion = third;
        g.rootBytes = (entries * kFatDirEntryBytes + bps - 1) / bps * bps;
        g.dataStart = third + g.rootBytes;
        g.rootCluster = kFat16RootId;
    } else {
        g.dataStart = third;
        g.rootCluster = fat_table::kFirstDataCluster;
    }
    // The highest cluster the FAT can describe bounds the record's count (which a damaged boot
    // sector or a GPT last-sector length can inflate).
    uint64_t fatEntries = FatEntriesInBytes(kind, uint64_t(r.fatSize) * bps);
    uint64_t highest = uint64_t(r.clusterCount) + 1;
    highest = std::min<uint64_t>(highest, fatEntries ? fatEntries - 1 : 0);
    highest = std::min<uint64_t>(highest, kind == FsKind::Fat12   ? fat_table::kFat12MaxCluster
                                          : kind == FsKind::Fat16 ? fat_table::kFat16MaxCluster
                                                                  : fat_table::kFat32MaxCluster);
    if (highest < 2) return false;
    g.highestCluster = uint32_t(highest);
    g.fatBytes = FatBytesForEntries(kind, highest + 1);
    return true;
}

// Geometry from an exFAT boot sector (shifts, FAT offset, cluster heap, cluster count, root).
bool ParseExFatBootSector(std::span<const uint8_t> boot, uint64_t volumeStart, uint64_t volumeEnd, FatGeometry& g) {
    auto bpsShift = exfat_boot::BytesPerSectorShift::Read(boot);
    auto spcShift = exfat_boot::SectorsPerClusterShift::Read(boot);
    auto fatOffset = exfat_boot::FatOffset::Read(boot), fatLength = exfat_boot::FatLength::Read(boot);
    auto heapOffset = exfat_boot::ClusterHeapOffset::Read(boot);
    auto clusterCount = exfat_boot::ClusterCount::Read(boot), root = exfat_boot::RootCluster::Read(boot);
    if (!bpsShift || !spcShift || !fatOffset || !fatLength || !heapOffset || !clusterCount || !root) return false;
    if (!exfat_boot::FileSystemName::Is(boot, kExFatName)) return false;
    // Sector sizes 512 to 4096 and clusters up to 32 MiB are all the format allows.
    if (*bpsShift < kExFatMinSectorShift || *bpsShift > kExFatMaxSectorShift ||
        *spcShift > kExFatMaxClusterShift - *bpsShift || *clusterCount == 0)
        return false;
    g = {};
    g.fsKind = FsKind::ExFat;
    const uint32_t sectorBytes = 1u << *bpsShift;
    g.volumeEnd = volumeEnd;
    g.clusterBytes = sectorBytes << *spcShift;
    g.fatStart = volumeStart + uint64_t(*fatOffset) * sectorBytes;
    g.dataStart = volumeStart + uint64_t(*heapOffset) * sectorBytes;
    uint64_t fatEntries = uint64_t(*fatLength) * sectorBytes / sizeof(uint32_t);
    uint64_t highest = std::min<uint64_t>(uint64_t(*clusterCount) + 1, fatEntries ? fatEntries - 1 : 0);
    highest = std::min<uint64_t>(highest, fat_table::kExFatMaxCluster);
    if (highest < fat_table::kFirstDataCluster || *root < fat_table::kFirstDataCluster || *root > highest)
        return false;
    g.highestCluster = uint32_t(highest);
    g.fatBytes = (highest + 1) * sizeof(uint32_t);
    g.rootCluster = *root;
    return true;
}

} // namespace

uint64_t FatBytesForEntries(FsKind kind, uint64_t entries) {
    switch (kind) {
    case FsKind::Fat12: return (entries * 3 + 1) / 2;
    case FsKind::Fat16: return entries * sizeof(uint16_t);
    default: return entries * sizeof(uint32_t);
    }
}

uint64_t FatEntriesInBytes(FsKind kind, uint64_t bytes) {
    switch (kind) {
    case FsKind::Fat12: return bytes * 2 / 3;
    case FsKind::Fat16: return bytes / sizeof(uint16_t);
    default: return bytes / sizeof(uint32_t);
    }
}

bool CFatVolume::Open(FsKind fsKind) {
    m_fatBlocks.clear();
    return fsKind == FsKind::ExFat ? OpenExFat() : OpenFat(fsKind);
}

void CFatVolume::SetGeometry(const FatGeometry& g) {
    m_g = g;
    m_fatBlocks.clear();
    FinishGeometry();
}

void CFatVolume::FinishGeometry() {
    if (m_g.mediaSectorSize == 0)
        m_g.mediaSectorSize = m_media.GetSectorSize() ? m_media.GetSectorSize() : kDefaultSectorBytes;
    // A FAT12/16 geometry made elsewhere: the root region runs up to the data area, within the
    // largest root a boot sector can declare.
    if (HasFatRootRegion(m_g.fsKind) && m_g.rootBytes == 0 && m_g.dataStart > m_g.rootRegion)
        m_g.rootBytes = std::min<uint64_t>(m_g.dataStart - m_g.rootRegion, uint64_t(UINT16_MAX) * kFatDirEntryBytes);
    uint64_t mediaEnd = m_media.ByteSize();
    if (mediaEnd && (m_g.volumeEnd == 0 || m_g.volumeEnd > mediaEnd)) m_g.volumeEnd = mediaEnd;
    // The FAT cache never holds more than the volume has room for, whatever the boot sector says.
    if (m_g.volumeEnd) m_g.fatBytes = m_g.volumeEnd > m_g.fatStart ? std::min(m_g.fatBytes, m_g.volumeEnd - m_g.fatStart) : 0;
    m_fatBlocks.assign(size_t((m_g.fatBytes + kFatBlockBytes - 1) / kFatBlockBytes), {});
}

bool CFatVolume::OpenFat(FsKind fsKind) {
    uint32_t ss = m_media.GetSectorSize() ? m_media.GetSectorSize() : kDefaultSectorBytes;
    uint64_t start = m_media.GetFirstSector() * ss;
    uint64_t end = m_media.GetSectorCount() ? start + m_media.GetSectorCount() * ss : 0;
    const PartitionRecord& params = m_media.GetPartitionParams();
    FsKind kind = fsKind;
    if (!IsFatKind(kind)) kind = params.fsKind;
    PartitionRecord r;
    if (IsFatKind(kind) && params.fsKind == kind && params.partitionFlag == PartitionFlag::Validated &&
        params.sectorsPerCluster != 0) {
        r = params;
    } else {
        // The record carries no geometry (a table-only entry, or a bare volume): read the boot
        // sector and fill a record the way the partition reader would.
        std::vector<uint8_t> boot(std::max<uint32_t>(ss, uint32_t(kBootSectorBytes)), 0);
        m_media.ReadSectors(boot.data(), uint32_t(boot.size()), m_media.GetFirstSector(), true);
        Bytes b(boot);
        if (BootSignature::Read(b) != kBootSignatureValue) return false;
        if (!IsFatKind(kind)) {
            // No kind given: FAT32 keeps its FAT size in the 32-bit field and has no root entries;
            // of the others, FAT12 is the one with fewer than 4085 clusters.
            if (fat_boot::FatSize16::Read(b) == 0 && fat_boot::RootEntries::Read(b) == 0) kind = FsKind::Fat32;
            else kind = IsFat12BootSector(m_media, b) ? FsKind::Fat12 : FsKind::Fat16;
        }
        r.length = m_media.GetSectorCount();
        if (kind == FsKind::Fat16) {
            FillFat16Record(b, r);
        } else if (kind == FsKind::Fat12) {
            FillFat12Record(b, r);
        } else {
            if (r.length == 0) r.length = fat_boot::TotalSectors32::Or(b, 0);
            FillFat32Record(b, r);
        }
    }
    if (!FatGeometryFromRecord(r, kind, start, end, ss, m_g)) return false;
    FinishGeometry();
    return true;
}

bool CFatVolume::OpenExFat() {
    uint32_t ss = m_media.GetSectorSize() ? m_media.GetSectorSize() : kDefaultSectorBytes;
    uint64_t start = m_media.GetFirstSector() * ss;
    uint64_t end = m_media.GetSectorCount() ? start + m_media.GetSectorCount() * ss : 0;
    std::vector<uint8_t> boot(kBootSectorBytes);
    // The main boot sector, then its backup.
    for (uint64_t at : {start, start + kExFatBackupBootSector * ss}) {
        std::fill(boot.begin(), boot.end(), 0);
        m_g.mediaSectorSize = ss;
        ReadBytes(at, boot.data(), boot.size());
        if (ParseExFatBootSector(boot, start, end, m_g)) {
            m_g.mediaSectorSize = ss;
            FinishGeometry();
            return true;
        }
    }
    return false;
}

bool CFatVolume::ReadBytes(uint64_t offset, uint8_t* out, size_t len) {
    std::memset(out, 0, len);
    if (len == 0) return true;
    uint32_t ss = m_g.mediaSectorSize ? m_g.mediaSectorSize : kDefaultSectorBytes;
    bool ok = true;
    // ReadSectors takes 32-bit byte counts; large reads go in pieces.
    constexpr size_t kPiece = size_t(64) << 20;
    if (offset % ss == 0 && len % ss == 0) {
        for (size_t done = 0; done < len;) {
            size_t n = std::min(kPiece, len - done);
            if (!m_media.ReadSectors(out + done, uint32_t(n), (offset + done) / ss, true)) {
                std::memset(out + done, 0, n);
                ok = false;
            }
            done += n;
        }
        return ok;
    }
    // Unaligned (a volume sector smaller than the media's): read the covering sectors.
    uint64_t first = offset / ss, last = (offset + len + ss - 1) / ss;
    for (uint64_t s = first; s < last;) {
        uint64_t count = std::min<uint64_t>(last - s, kPiece / ss);
        m_readBuf.assign(size_t(count * ss), 0);
        bool got = m_media.ReadSectors(m_readBuf.data(), uint32_t(m_readBuf.size()), s, true);
        ok = ok && got;
        uint64_t bufStart = s * ss, bufEnd = bufStart + m_readBuf.size();
        uint64_t from = std::max(bufStart, offset), to = std::min(bufEnd, offset + len);
        if (got && to > from) std::memcpy(out + (from - offset), m_readBuf.data() + (from - bufStart), size_t(to - from));
        s += count;
    }
    return ok;
}

const uint8_t* CFatVolume::FatBytesAt(uint64_t at) {
    size_t block = size_t(at / kFatBlockBytes);
    std::vector<uint8_t>& b = m_fatBlocks[block];
    if (b.empty()) {
        // One read per block; a failed read leaves zeros, which end every chain through it.
        uint64_t blockStart = uint64_t(block) * kFatBlockBytes;
        b.resize(size_t(std::min<uint64_t>(kFatBlockBytes, m_g.fatBytes - blockStart)));
        ReadBytes(m_g.fatStart + blockStart, b.data(), b.size());
    }
    return b.data() + (at - uint64_t(block) * kFatBlockBytes);
}

uint32_t CFatVolume::Entry(uint32_t cluster) {
    if (m_g.fsKind == FsKind::Fat12) {
        // An entry's two bytes may lie on both sides of a sector or block edge: taken one by one.
        uint64_t at = uint64_t(cluster) * 3 / 2;
        if (at + 2 > m_g.fatBytes) return 0;
        uint32_t pair = *FatBytesAt(at) | uint32_t(*FatBytesAt(at + 1)) << 8;
        return (cluster & 1 ? pair >> fat_table::kFat12OddShift : pair) & fat_table::kFat12EntryMask;
    }
    uint32_t width = m_g.fsKind == FsKind::Fat16 ? sizeof(uint16_t) : sizeof(uint32_t);
    uint64_t at = uint64_t(cluster) * width;
    if (at + width > m_g.fatBytes) return 0;
    // Blocks hold whole 16- and 32-bit entries.
    static_assert(kFatBlockBytes % sizeof(uint32_t) == 0);
    const uint8_t* p = FatBytesAt(at);
    return width == sizeof(uint16_t) ? Le16(p) : Le32(p);
}

uint32_t CFatVolume::LastClusterInVolume() const {
    if (m_g.clusterBytes == 0 || m_g.volumeEnd <= m_g.dataStart) return 1;
    uint64_t last = (m_g.volumeEnd - m_g.dataStart) / m_g.clusterBytes + 1;
    return uint32_t(std::min<uint64_t>(last, m_g.highestCluster));
}

bool CFatVolume::EndsChain(uint32_t current, uint32_t next) const {
    if (next == current) return true;
    if (m_g.fsKind == FsKind::Fat12 && (next < fat_table::kFirstDataCluster || next >= fat_table::kFat12ChainEndFrom))
        return true;
    if (m_g.fsKind == FsKind::Fat16 &&
        (next < fat_table::kFirstDataCluster ||
         (next >= fat_table::kFat16ChainEndFrom && next <= fat_table::kFat16ChainEndTo)))
        return true;
    uint32_t masked = next & fat_table::kFat32EntryMask;
    return masked < fat_table::kFirstDataCluster || masked >= fat_table::kFat32ChainEndFrom;
}

std::vector<uint32_t> CFatVolume::FollowChain(uint32_t first, size_t maxClusters) {
    std::vector<uint32_t> chain;
    if (!IsDataCluster(first) || maxClusters == 0) return chain;
    chain.push_back(first);
    // Brent's cycle detection: `tortoise` waits at power-of-two steps; meeting it again means a
    // loop of length `lam`, which is cut where it first closes. No per-chain visited set needed.
    uint32_t tortoise = first, cur = first;
    size_t power = 1, lam = 1;
    while (chain.size() < maxClusters) {
        uint32_t next = Entry(cur);
        if (EndsChain(cur, next)) break;
        // FAT32 entries are 28-bit; the top four bits are reserved.
        if (m_g.fsKind == FsKind::Fat32) next &= fat_table::kFat32EntryMask;
        if (!IsDataCluster(next)) break;
        chain.push_back(next);
        if (next == tortoise) {
            for (size_t i = 0; i + lam < chain.size(); ++i) {
                if (chain[i] == chain[i + lam]) {
                    chain.resize(i + lam);
                    return chain;
                }
            }
            break; // not reached: the meeting point proves a repeat at distance lam
        }
        if (power == lam) {
            tortoise = next;
            power <<= 1;
            lam = 0;
        }
        ++lam;
        cur = next;
    }
    return chain;
}

std::vector<ClusterRun> CFatVolume::ToRuns(std::span<const uint32_t> clusters) {
    std::vector<ClusterRun> runs;
    for (uint32_t c : clusters) {
        if (!runs.empty() && runs.back().first + runs.back().count == c && runs.back().count < UINT32_MAX)
            ++runs.back().count;
        else
            runs.push_back({c, 1});
    }
    return runs;
}

void CFatVolume::ReadClusters(std::span<const uint32_t> clusters, size_t maxReadBytes,
                              const std::function<bool(size_t, std::span<const uint8_t>)>& onCluster) {
    const size_t cb = m_g.clusterBytes;
    if (cb == 0) return;
    size_t perRead = std::max<size_t>(1, maxReadBytes / cb);
    std::vector<uint8_t> buf;
    for (size_t i = 0; i < clusters.size();) {
        // Consecutive clusters, at most perRead of them, in one read.
        size_t n = 1;
        while (i + n < clusters.size() && n < perRead && clusters[i + n] == clusters[i] + n) ++n;
        // Clusters past the end of the volume hold nothing to read (a chain or size that claims
        // them is damaged); stop there instead of reading zeros.
        if (ClusterOffset(clusters[i]) >= m_g.volumeEnd) return;
        buf.resize(n * cb);
        bool ok = ReadBytes(ClusterOffset(clusters[i]), buf.data(), buf.size());
        // A source that went away has nothing more to give: the walk above ends on it.
        if (!ok && m_media.DeviceGone()) return;
        for (size_t k = 0; k < n; ++k)
            if (!onCluster(i + k, std::span<const uint8_t>(buf.data() + k * cb, cb))) return;
        i += n;
    }
}

} // namespace kestrin
