#include "fs/ntfs/CNtfsVolume.h"

#include <algorithm>
#include <cstring>

namespace kestrin {

using namespace layout::ntfs;

namespace {
constexpr size_t kMaxDirectRead = 32u << 20;
constexpr size_t kBounceWindow = 1u << 20;
// Record sizes given as a power of two (a negative count) range from 512 bytes to 64 KiB.
constexpr int kMinRecordShift = 9, kMaxRecordShift = 16;
// A sectors-per-cluster byte above this is a negative power of two, up to 2^kMaxClusterShift.
constexpr uint8_t kMaxPlainSectorsPerCluster = 0x80;
constexpr uint32_t kMaxClusterShift = 20;
} // namespace

CNtfsVolume::CNtfsVolume(CPhysicalDisk& media) : m_media(media) {
    m_mediaSectorSize = media.GetSectorSize() ? media.GetSectorSize() : 512;
    m_startByte = media.GetFirstSector() * m_mediaSectorSize;
}

bool CNtfsVolume::SetGeometryFromBoot(Bytes sector) {
    namespace nb = layout::ntfs_boot;
    if (sector.size() < boot::kTestedBytes) return false;
    const uint8_t* b = sector.data();
    uint32_t bps = nb::BytesPerSector::At(b);
    if (bps == 0 || bps % 512 != 0) bps = m_mediaSectorSize;
    // Sectors per cluster above 0x80 is a negative power of two (clusters of 128 KiB and more).
    uint8_t spcByte = nb::SectorsPerCluster::At(b);
    uint32_t spc = spcByte <= kMaxPlainSectorsPerCluster ? spcByte
                   : (256u - spcByte <= kMaxClusterShift ? 1u << (256u - spcByte) : 0);
    if (spc == 0 || uint64_t(spc) * bps > kNtfsMaxClusterBytes) return false;
    uint32_t bpc = spc * bps;
    int8_t perRecord = int8_t(nb::ClustersPerRecord::At(b));
    uint64_t recordSize;
    if (perRecord < 0) {
        int exponent = -perRecord;
        if (exponent < kMinRecordShift || exponent > kMaxRecordShift) return false;
        recordSize = 1ull << exponent;
    } else {
        recordSize = uint64_t(perRecord) * bpc;
    }
    if (recordSize < kNtfsFixupBlock || recordSize > kNtfsMaxRecordBytes || recordSize % kNtfsFixupBlock != 0)
        return false;
    uint64_t totalSectors = nb::TotalSectors::At(b);
    m_bytesPerSector = bps;
    m_sectorsPerCluster = spc;
    m_bytesPerCluster = bpc;
    m_recordSize = uint32_t(recordSize);
    m_volumeBytes = totalSectors > ~0ull / bps ? ~0ull / bps * bps : totalSectors * bps;
    m_mftCluster = nb::MftCluster::At(b);
    m_mirrorCluster = nb::MftMirrorCluster::At(b);
    m_sizeKnown = true;
    return true;
}

bool CNtfsVolume::LoadGeometry() {
    std::vector<uint8_t> boot(std::max<uint32_t>(512, m_mediaSectorSize));
    m_volumeBytes = 0; // not known yet: the boot read is not clipped
    m_sizeKnown = false;
    if (ReadVolume(0, boot.data(), boot.size()) && NtfsBootTest(boot) && SetGeometryFromBoot(boot)) return true;
    const PartitionRecord& p = m_media.GetPartitionParams();
    const bool atRangeStart = m_startByte == m_media.GetFirstSector() * m_mediaSectorSize;
    if (atRangeStart && m_media.GetFsKind() == FsKind::Ntfs && p.fsKind == FsKind::Ntfs && p.bytesPerSector && p.sectorsPerCluster &&
        p.mftRecordSize >= 512 && p.mftRecordSize % 512 == 0 && p.bytesPerCluster <= kNtfsMaxClusterBytes) {
        m_bytesPerSector = p.bytesPerSector;
        m_sectorsPerCluster = p.sectorsPerCluster;
        m_bytesPerCluster = uint32_t(p.bytesPerSector) * p.sectorsPerCluster;
        m_recordSize = p.mftRecordSize;
        m_mftCluster = p.secondArea;
        m_mirrorCluster = p.thirdArea;
        m_volumeBytes = m_media.GetSectorCount() * m_mediaSectorSize;
        m_sizeKnown = true;
        return m_bytesPerCluster <= kNtfsMaxClusterBytes;
    }
    return false;
}

void CNtfsVolume::SetStartSector(uint64_t sector) {
    m_startByte = sector > ~0ull / m_mediaSectorSize ? 0 : sector * m_mediaSectorSize;
}

void CNtfsVolume::SetClusterSize(uint32_t bpc) {
    if (bpc < m_bytesPerSector || bpc > kNtfsMaxClusterBytes || bpc % m_bytesPerSector != 0) return;
    m_bytesPerCluster = bpc;
    m_sectorsPerCluster = bpc / m_bytesPerSector;
}

void CNtfsVolume::UseDefaultGeometry() {
    m_bytesPerSector = m_mediaSectorSize;
    m_bytesPerCluster = std::max<uint32_t>(4096, m_mediaSectorSize);
    m_sectorsPerCluster = m_bytesPerCluster / m_bytesPerSector;
    m_recordSize = 0;
    m_sizeKnown = false;
    // The volume reaches to the end of the selected range (or of the media).
    const uint64_t first = m_media.GetFirstSector(), count = m_media.GetSectorCount();
    uint64_t endByte = 0;
    if (count && first <= ~0ull / m_mediaSectorSize - count) endByte = (first + count) * m_mediaSectorSize;
    else if (m_media.ByteSize()) endByte = m_media.ByteSize();
    m_volumeBytes = endByte > m_startByte ? (endByte - m_startByte) / m_mediaSectorSize * m_mediaSectorSize : 0;
}

bool CNtfsVolume::ReadVolume(uint64_t offset, void* out, size_t len) {
    auto* dst = static_cast<uint8_t*>(out);
    std::memset(dst, 0, len);
    bool ok = true;
    if (m_volumeBytes) {
        if (offset >= m_volumeBytes) return false;
        if (m_volumeBytes - offset < len) {
            len = size_t(m_volumeBytes - offset);
            ok = false;
        }
    }
    uint64_t abs = m_startByte + offset;
    while (len > 0) {
        uint64_t sector = abs / m_mediaSectorSize;
        size_t skip = size_t(abs % m_mediaSectorSize);
        size_t n;
        if (skip == 0 && len >= m_mediaSectorSize) {
            n = std::min(len - len % m_mediaSectorSize, kMaxDirectRead);
            if (!m_media.ReadSectors(dst, uint32_t(n), sector, true)) {
                std::memset(dst, 0, n);
                ok = false;
            }
        } else {
            size_t window = std::min<size_t>((skip + len + m_mediaSectorSize - 1) / m_mediaSectorSize * m_mediaSectorSize,
                                             std::max<size_t>(kBounceWindow, m_mediaSectorSize));
            n = std::min(len, window - skip);
            m_bounce.assign(window, 0);
            if (m_media.ReadSectors(m_bounce.data(), uint32_t(window), sector, true))
                std::memcpy(dst, m_bounce.data() + skip, n);
            else
                ok = false;
        }
        dst += n;
        abs += n;
        len -= n;
    }
    return ok;
}

uint64_t CNtfsVolume::MapMft(uint64_t mftOffset) const {
    uint64_t vcn = mftOffset / m_bytesPerCluster;
    auto it = std::upper_bound(m_mftRuns.begin(), m_mftRuns.end(), vcn,
                               [](uint64_t v, const MftRun& r) { return v < r.vcn; });
    if (it == m_mftRuns.begin()) return ~0ull;
    --it;
    if (vcn - it->vcn >= it->lengthClusters) return ~0ull;
    return it->startCluster * m_bytesPerCluster + (mftOffset - it->vcn * m_bytesPerCluster);
}

bool CNtfsVolume::ReadMft(uint64_t mftOffset, uint8_t* buf, size_t len) {
    std::memset(buf, 0, len);
    bool ok = true, mapped = false;
    uint64_t pos = mftOffset, end = mftOffset + len;
    while (pos < end) {
        uint64_t vcn = pos / m_bytesPerCluster;
        auto it = std::upper_bound(m_mftRuns.begin(), m_mftRuns.end(), vcn,
                                   [](uint64_t v, const MftRun& r) { return v < r.vcn; });
        if (it != m_mftRuns.begin() && vcn - (it - 1)->vcn < (it - 1)->lengthClusters) {
            const MftRun& r = *(it - 1);
            uint64_t runEnd = (r.vcn + r.lengthClusters) * m_bytesPerCluster;
            uint64_t n = std::min(runEnd, end) - pos;
            uint64_t at = r.startCluster * m_bytesPerCluster + (pos - r.vcn * m_bytesPerCluster);
            if (!ReadVolume(at, buf + (pos - mftOffset), size_t(n))) ok = false;
            mapped = true;
            pos += n;
        } else {
            // Unmapped: skip to the next run's start (zeros stay).
            uint64_t next = it == m_mftRuns.end() ? end : std::min(end, it->vcn * m_bytesPerCluster);
            pos = std::max(next, pos + 1);
        }
    }
    return ok && mapped;
}

bool CNtfsVolume::ReadRecord(uint64_t recordNumber, std::vector<uint8_t>& out) {
    if (!m_recordSize || m_mftRuns.empty()) return false;
    uint64_t offset = recordNumber * m_recordSize;
    if (recordNumber > (1ull << 48) || offset >= m_mftBytes) return false;
    out.resize(m_recordSize);
    if (!ReadMft(offset, out.data(), out.size())) return false;
    return CheckFileRecord(out, m_recordSize);
}

bool CNtfsVolume::ReadRunData(const std::vector<NtfsRun>& runs, uint64_t bytes, std::vector<uint8_t>& out) {
    if (bytes > m_volumeBytes && m_volumeBytes) return false;
    out.assign(size_t(bytes), 0);
    uint64_t pos = 0;
    bool ok = true;
    for (const NtfsRun& r : runs) {
        if (pos >= bytes) break;
        uint64_t n = std::min<uint64_t>(r.lengthClusters * m_bytesPerCluster, bytes - pos);
        if (!r.sparse) {
            if (r.startCluster >= ClusterCount() || !ReadVolume(r.startCluster * m_bytesPerCluster, out.data() + pos, size_t(n)))
                ok = false;
        }
        pos += n;
    }
    return ok && pos >= bytes;
}

bool CNtfsVolume::Open() {
    if (!m_recordSize || !m_bytesPerCluster) return false;
    // The mirror is not worth a read once the source has gone away.
    return OpenAt(m_mftCluster) || (!m_media.DeviceGone() && OpenAt(m_mirrorCluster));
}

bool CNtfsVolume::OpenAt(uint64_t cluster) {
    if (cluster >= ClusterCount()) return false;
    std::vector<uint8_t> record(m_recordSize);
    if (!ReadVolume(cluster * m_bytesPerCluster, record.data(), record.size())) return false;
    if (!CheckFileRecord(record, m_recordSize)) return false;
    return GatherMftRuns(record);
}

// The MFT's data runs come from record 0's unnamed data attribute; a large, fragmented MFT keeps
// further pieces in extension records named by record 0's attribute list. The pieces are read
// through the runs known so far and put together in VCN order.
bool CNtfsVolume::GatherMftRuns(std::vector<uint8_t>& record0) {
    struct Piece {
        uint64_t startVcn = 0, lastVcn = 0;
        std::vector<NtfsRun> runs;
    };
    struct ListRef {
        uint64_t vcn = 0, record = 0;
        bool done = false;
    };
    std::vector<Piece> pieces;
    std::vector<ListRef> refs;

    const uint64_t runBound = m_sizeKnown ? ClusterCount() : 0;
    auto pieceOf = [runBound](Bytes rec, const NtfsAttr& a, std::vector<Piece>& into) {
        auto start = nonresident::FirstVcn::Read(rec, a.offset), last = nonresident::LastVcn::Read(rec, a.offset);
        auto runOffset = nonresident::RunListOffset::Read(rec, a.offset);
        if (!start || !last || !runOffset) return;
        Piece p;
        p.startVcn = *start;
        p.lastVcn = *last;
        DecodeRuns(rec.subspan(a.offset, a.length), *runOffset, p.runs, runBound);
        into.push_back(std::move(p));
    };

    Bytes rec0 = record0;
    ForEachAttribute(rec0, [&](const NtfsAttr& a) {
        if (a.type == 0 || a.type > kAttrData) return false;
        if (a.type == kAttrList) {
            // A list read in part still names the pieces it holds; the rest stay unknown.
            std::vector<uint8_t> stored;
            bool readOk = false;
            ForEachListEntry(AttributeListBytes(rec0, a, this, stored, readOk), [&](const NtfsListEntry& entry) {
                if (entry.type == kAttrData) refs.push_back({entry.firstVcn, entry.record});
                return true;
            });
        } else if (a.type == kAttrData && a.nonResident && a.Unnamed()) {
            pieceOf(rec0, a, pieces);
        }
        return true;
    });

    auto rebuild = [&] {
        std::vector<Piece*> order;
        for (auto& p : pieces) order.push_back(&p);
        std::stable_sort(order.begin(), order.end(), [](Piece* a, Piece* b) { return a->startVcn < b->startVcn; });
        m_mftRuns.clear();
        uint64_t clusters = ClusterCount();
        uint64_t lastEnd = 0;
        for (Piece* p : order) {
            uint64_t vcn = p->startVcn;
            // A piece that overlaps one already laid out, or starts past anything the volume
            // could hold, is ignored.
            if (vcn < lastEnd || vcn >= clusters) continue;
            for (const NtfsRun& r : p->runs) {
                if (vcn >= clusters) break;
                if (!r.sparse && r.lengthClusters && r.startCluster < clusters) {
                    uint64_t len = std::min(r.lengthClusters, clusters - r.startCluster);
                    m_mftRuns.push_back({vcn, len, r.startCluster});
                }
                vcn += r.lengthClusters;
            }
            lastEnd = vcn;
        }
        uint64_t bytes = m_mftRuns.empty() ? 0 : (m_mftRuns.back().vcn + m_mftRuns.back().lengthClusters) * m_bytesPerCluster;
        // The walk never covers more than the volume can hold, whatever the runs claim.
        m_mftBytes = std::min(bytes, m_volumeBytes);
    };
    rebuild();

    // Extension records are found through the runs gathered so far; repeat while pieces arrive.
    std::vector<uint8_t> ext;
    for (bool progress = true; progress;) {
        progress = false;
        for (ListRef& r : refs) {
            if (r.done) continue;
            if (r.record == 0) {
                r.done = true;
                continue;
            }
            if (!ReadRecord(r.record, ext)) continue;
            r.done = true;
            Bytes e = ext;
            ForEachAttribute(e, [&](const NtfsAttr& a) {
                if (a.type == kAttrData && a.nonResident && a.Unnamed() &&
                    nonresident::FirstVcn::Or(e, ~0ull, a.offset) == r.vcn) {
                    pieceOf(e, a, pieces);
                    progress = true;
                    return false;
                }
                return a.type <= kAttrData;
            });
            if (progress) rebuild();
        }
    }
    if (m_mftRuns.empty()) return false;

    uint64_t lastVcn = 0;
    for (const Piece& p : pieces) lastVcn = std::max(lastVcn, p.lastVcn);
    uint32_t sectorsPerRecord = std::max<uint32_t>(1, m_recordSize / m_bytesPerSector);
    // Progress total as the MFT's size in records: (last VCN + 1) x (sectors per cluster /
    // sectors per record), or last VCN + 1 itself on one-sector clusters.
    m_expectedRecords = m_sectorsPerCluster == 1 ? lastVcn + 1 : (lastVcn + 1) * (m_sectorsPerCluster / sectorsPerRecord);
    if (m_expectedRecords == 0 || m_expectedRecords > (1ull << 32)) m_expectedRecords = m_mftBytes / m_recordSize;
    return true;
}

} // namespace kestrin
