// Content read-back of one NTFS file through its record.
#include <algorithm>
#include <cstring>
#include <vector>

#include "fs/CNode.h"
#include "fs/Condition.h"
#include "fs/ntfs/CNtfsVolume.h"
#include "fs/ntfs/Lznt1.h"
#include "fs/ntfs/NtfsEngine.h"

namespace kestrin {

using namespace layout::ntfs;

namespace {

constexpr size_t kCopyChunk = 1u << 20;
constexpr size_t kMaxPieces = 4096;
constexpr uint32_t kDefaultUnitClusters = 16;
// Compression units larger than 2^this clusters are taken as the default.
constexpr uint8_t kMaxUnitShift = 8;
constexpr uint64_t kMaxUnitBytes = 32u << 20;

struct Extent {
    uint64_t vcn = 0, length = 0, lcn = 0;
    bool sparse = false;
};

// The unnamed data attribute of a file, gathered from its base record and, through an attribute
// list, from its extension records.
struct DataStream {
    bool found = false;
    bool resident = false;
    std::vector<uint8_t> residentValue;
    bool compressed = false;
    uint32_t unitClusters = kDefaultUnitClusters;
    uint64_t initializedSize = ~0ull;
    std::vector<Extent> extents;
    std::vector<uint64_t> pieceVcns;
    // Runs must lie inside this many clusters (0: the volume's size is not known).
    uint64_t volumeClusters = 0;
    // Decoding room, kept across attributes.
    std::vector<NtfsRun> runs;

    // Empties the stream for another file, keeping the room it had.
    void Clear() {
        found = resident = compressed = false;
        residentValue.clear();
        unitClusters = kDefaultUnitClusters;
        initializedSize = ~0ull;
        extents.clear();
        pieceVcns.clear();
    }

    void Take(Bytes rec, const NtfsAttr& a) {
        if (!a.nonResident) {
            if (found) return;
            Bytes v = ResidentValue(rec, a);
            residentValue.assign(v.begin(), v.end());
            resident = found = true;
            return;
        }
        auto startVcn = nonresident::FirstVcn::Read(rec, a.offset);
        auto runOffset = nonresident::RunListOffset::Read(rec, a.offset);
        if (!startVcn || !runOffset || *startVcn > uint64_t(INT64_MAX) || pieceVcns.size() >= kMaxPieces) return;
        if (std::find(pieceVcns.begin(), pieceVcns.end(), *startVcn) != pieceVcns.end()) return;
        pieceVcns.push_back(*startVcn);
        if (*startVcn == 0) {
            uint16_t flags = attr::Flags::Or(rec, 0, a.offset);
            uint8_t unitExponent = nonresident::CompressionUnit::Or(rec, 0, a.offset);
            compressed = (flags & attr::kFlagsCompressionMask) != 0 && unitExponent != 0;
            if (unitExponent >= 1 && unitExponent <= kMaxUnitShift) unitClusters = 1u << unitExponent;
            initializedSize = nonresident::InitializedSize::Or(rec, ~0ull, a.offset);
        }
        runs.clear();
        DecodeRuns(rec.subspan(a.offset, a.length), *runOffset, runs, volumeClusters);
        uint64_t vcn = *startVcn;
        for (const NtfsRun& r : runs) {
            if (r.lengthClusters > uint64_t(INT64_MAX) - vcn) break;
            extents.push_back({vcn, r.lengthClusters, r.startCluster, r.sparse});
            vcn += r.lengthClusters;
        }
        found = true;
    }
};

class CContentWriter {
public:
    CContentWriter(CPhysicalDisk& media, CNtfsVolume& vol, const ContentSink& sink, uint64_t size)
        : m_media(media), m_vol(vol), m_sink(sink), m_size(size) {}

    ContentResult Resident(const std::vector<uint8_t>& value) {
        uint64_t n = std::min<uint64_t>(value.size(), m_size);
        if (n && !Emit(value.data(), size_t(n))) return m_result;
        if (n < m_size && !Zeros(m_size - n, true)) return m_result;
        return Done();
    }

    ContentResult Plain(std::vector<Extent>& extents, uint64_t initializedSize) {
        const uint64_t bpc = m_vol.BytesPerCluster(), clusters = m_vol.ClusterCount();
        std::vector<uint8_t> buf(size_t(std::min<uint64_t>(kCopyChunk, m_size)));
        for (const Extent& e : extents) {
            if (m_pos >= m_size) break;
            if (e.vcn > m_size / bpc + 1) break;
            uint64_t start = e.vcn * bpc;
            if (start >= m_size) break;
            if (start < m_pos) continue; // overlaps what was written
            if (start > m_pos && !Zeros(start - m_pos, true)) return m_result;
            uint64_t end = std::min(m_size, start + e.length * bpc);
            if (e.sparse) {
                if (!Zeros(end - m_pos, false)) return m_result;
                continue;
            }
            uint64_t inVolume = e.lcn < clusters ? std::min(e.length, clusters - e.lcn) : 0;
            uint64_t readableEnd = std::min(end, start + inVolume * bpc);
            while (m_pos < readableEnd) {
                size_t n = size_t(std::min<uint64_t>(buf.size(), readableEnd - m_pos));
                // A piece ends at the initialised size, so that what lies below it can be placed.
                if (m_pos < initializedSize && initializedSize - m_pos < n) n = size_t(initializedSize - m_pos);
                // Below the initialised size the clusters are the content: copied from file to
                // file by the kernel where it can, else read and written.
                if (m_pos + n <= initializedSize) {
                    ContentSink::Copy c = CopySourceRun(m_media, m_sink, m_vol.VolumeStartByte() + e.lcn * bpc + (m_pos - start), n);
                    if (c == ContentSink::Copy::Stop) {
                        m_failed = true;
                        return m_result;
                    }
                    if (c == ContentSink::Copy::Done) {
                        m_pos += n;
                        m_result.written += n;
                        continue;
                    }
                }
                if (!m_vol.ReadVolume(e.lcn * bpc + (m_pos - start), buf.data(), n)) m_result.unreadable += n;
                // Past the initialised size a file reads as zeros, whatever the clusters hold.
                if (initializedSize < m_pos + n) {
                    size_t keep = initializedSize > m_pos ? size_t(initializedSize - m_pos) : 0;
                    std::memset(buf.data() + keep, 0, n - keep);
                }
                if (!Emit(buf.data(), n)) return m_result;
            }
            if (readableEnd < end) return Beyond();
        }
        if (m_pos < m_size && !Zeros(m_size - m_pos, true)) return m_result;
        return Done();
    }

    ContentResult Compressed(std::vector<Extent>& extents, uint32_t unitClusters) {
        const uint64_t bpc = m_vol.BytesPerCluster(), clusters = m_vol.ClusterCount();
        const uint64_t unitBytes = uint64_t(unitClusters) * bpc;
        if (unitBytes > kMaxUnitBytes) return Plain(extents, ~0ull);
        std::vector<uint8_t> packed(unitBytes), unpacked(unitBytes);
        std::vector<uint64_t> lcns;
        auto lookup = [&](uint64_t vcn) -> const Extent* {
            auto it = std::upper_bound(extents.begin(), extents.end(), vcn,
                                       [](uint64_t v, const Extent& x) { return v < x.vcn; });
            if (it == extents.begin()) return nullptr;
            --it;
            return vcn - it->vcn < it->length ? &*it : nullptr;
        };
        for (uint64_t unit = 0; m_pos < m_size; ++unit) {
            uint64_t firstVcn = unit * unitClusters;
            // The unit's stored clusters come first; a unit with fewer stored clusters than its
            // length holds compressed data, a full one is stored as is, an empty one is zeros.
            uint32_t stored = 0;
            bool readError = false;
            lcns.clear();
            for (uint32_t i = 0; i < unitClusters; ++i) {
                const Extent* x = lookup(firstVcn + i);
                if (!x || x->sparse) continue;
                uint64_t lcn = x->lcn + (firstVcn + i - x->vcn);
                if (lcn >= clusters) return Beyond();
                lcns.push_back(lcn);
            }
            // Neighbouring clusters are read together.
            for (size_t i = 0; i < lcns.size();) {
                size_t j = i + 1;
                while (j < lcns.size() && lcns[j] == lcns[j - 1] + 1) ++j;
                if (!m_vol.ReadVolume(lcns[i] * bpc, packed.data() + i * bpc, size_t((j - i) * bpc))) readError = true;
                i = j;
            }
            stored = uint32_t(lcns.size());
            size_t n = size_t(std::min<uint64_t>(unitBytes, m_size - m_pos));
            const uint8_t* out;
            if (stored == 0) {
                std::fill(unpacked.begin(), unpacked.end(), 0);
                out = unpacked.data();
            } else if (stored == unitClusters) {
                out = packed.data();
            } else {
                std::fill(unpacked.begin(), unpacked.end(), 0);
                bool error = false;
                size_t produced = Lznt1Decompress(packed.data(), size_t(stored * bpc), unpacked.data(), unpacked.size(), error);
                if (error && produced < n) m_result.unreadable += n - produced;
                out = unpacked.data();
            }
            if (readError) m_result.unreadable += n;
            if (!Emit(out, n)) return m_result;
        }
        return Done();
    }

private:
    bool Emit(const uint8_t* p, size_t n) {
        if (!m_sink(p, n)) {
            m_failed = true;
            return false;
        }
        m_pos += n;
        m_result.written += n;
        return true;
    }
    bool Zeros(uint64_t n, bool missing) {
        static const std::vector<uint8_t> zeros(kCopyChunk, 0);
        if (missing) m_result.unreadable += n;
        while (n) {
            size_t k = size_t(std::min<uint64_t>(n, zeros.size()));
            if (!Emit(zeros.data(), k)) return false;
            n -= k;
        }
        return true;
    }
    ContentResult Beyond() {
        m_result.beyondVolume = m_size - m_pos;
        return Done();
    }
    ContentResult Done() {
        m_result.ok = !m_failed && m_result.written == m_size && m_result.unreadable == 0 && m_result.beyondVolume == 0;
        return m_result;
    }

    CPhysicalDisk& m_media;
    CNtfsVolume& m_vol;
    const ContentSink& m_sink;
    uint64_t m_size;
    uint64_t m_pos = 0;
    bool m_failed = false;
    ContentResult m_result;
};

// Finds extension record `number` of the base record at volume byte `baseOffset` when the MFT
// cannot be opened (a volume found by the record search): first where an unbroken MFT would keep
// it, then anywhere in a window around the base. Only a record that names this base (number and
// sequence) is taken.
class CNearbyRecords {
public:
    static constexpr uint64_t kWindow = 4u << 20;

    CNearbyRecords(CNtfsVolume& vol, uint64_t baseOffset, Bytes base, uint32_t recordSize, uint64_t baseNumber)
        : m_vol(vol), m_baseOffset(baseOffset), m_recordSize(recordSize), m_baseNumber(baseNumber),
          m_baseSequence(file_record::Sequence::Or(base, 0)) {}

    bool Read(uint64_t number, std::vector<uint8_t>& out) {
        // Record numbers in headers are 32 bits wide.
        if (number > UINT32_MAX || m_baseNumber > UINT32_MAX) return false;
        out.resize(m_recordSize);
        int64_t delta = (int64_t(number) - int64_t(m_baseNumber)) * int64_t(m_recordSize);
        if (delta >= 0 || uint64_t(-delta) <= m_baseOffset) {
            uint64_t at = m_baseOffset + uint64_t(delta);
            if (m_vol.ReadVolume(at, out.data(), out.size()) && Matches(out, number)) return true;
        }
        if (!m_windowRead) {
            m_windowRead = true;
            m_windowStart = m_baseOffset > kWindow ? m_baseOffset - kWindow : 0;
            m_window.assign(size_t(m_baseOffset - m_windowStart + kWindow + m_recordSize), 0);
            m_vol.ReadVolume(m_windowStart, m_window.data(), m_window.size());
        }
        for (size_t pos = 0; pos + m_recordSize <= m_window.size(); pos += kNtfsFixupBlock) {
            if (!file_record::Magic::Is(m_window, file_record::kMagic, pos)) continue;
            std::memcpy(out.data(), m_window.data() + pos, m_recordSize);
            if (Matches(out, number)) return true;
        }
        return false;
    }

private:
    bool Matches(std::vector<uint8_t>& rec, uint64_t number) const {
        if (!CheckFileRecord(rec, m_recordSize) || file_record::UsaOffset::At(rec.data()) != file_record::kUsaOffsetNumbered ||
            file_record::RecordNumber::At(rec.data()) != number)
            return false;
        uint64_t ref = file_record::BaseRecord::At(rec.data());
        uint16_t seq = file_reference::Sequence(ref);
        return file_reference::Number(ref) == m_baseNumber && (seq == 0 || m_baseSequence == 0 || seq == m_baseSequence);
    }

    CNtfsVolume& m_vol;
    uint64_t m_baseOffset;
    uint32_t m_recordSize;
    uint64_t m_baseNumber;
    uint16_t m_baseSequence;
    bool m_windowRead = false;
    uint64_t m_windowStart = 0;
    std::vector<uint8_t> m_window;
};

// True when data attribute `a` of `rec` is the stream named `stream` (UTF-16LE; empty: the
// unnamed data).
bool IsStream(Bytes rec, const NtfsAttr& a, Bytes stream) {
    if (a.type != kAttrData) return false;
    if (stream.empty()) return a.Unnamed();
    return !a.Unnamed() && size_t(a.nameLength) * 2 == stream.size() && Fits(rec, a.offset + a.nameOffset, stream.size()) &&
           std::memcmp(rec.data() + a.offset + a.nameOffset, stream.data(), stream.size()) == 0;
}

bool IsStreamEntry(const NtfsListEntry& entry, Bytes stream) {
    if (entry.type != kAttrData) return false;
    if (stream.empty()) return entry.unnamed;
    return entry.name.size() == stream.size() && std::memcmp(entry.name.data(), stream.data(), stream.size()) == 0;
}

// The stream a node stands for, UTF-16LE: what follows the last ':' of a stream item's name (a
// stream's name holds no ':'), nothing for the unnamed data.
std::vector<uint8_t> StreamOf(const CNode& node) {
    std::vector<uint8_t> name;
    if (!(node.flags & kNodeNtfsStream)) return name;
    size_t colon = node.name.rfind(u':');
    if (colon == std::u16string_view::npos || colon + 1 >= node.name.size()) return name;
    for (size_t i = colon + 1; i < node.name.size(); ++i) {
        name.push_back(uint8_t(node.name[i] & 0xFF));
        name.push_back(uint8_t(node.name[i] >> 8));
    }
    return name;
}

// Gathers data attribute `stream` (empty: the unnamed one) of the checked record at volume byte
// `offset`: from the record itself and, through its attribute list, from its extension records
// (through the MFT when it is open, else looked for around the record). `fallbackNumber` is the
// record's number when its header carries none.
void GatherDataStream(CNtfsVolume& vol, bool mftOpen, Bytes rec, uint64_t offset, uint64_t fallbackNumber,
                      DataStream& data, Bytes stream = {}) {
    struct ListRef {
        uint64_t vcn, record;
    };
    std::vector<ListRef> refs;
    ForEachAttribute(rec, [&](const NtfsAttr& a) {
        if (a.type == kAttrList) {
            // A list read in part still names the pieces it holds; the rest read as missing.
            std::vector<uint8_t> stored;
            bool readOk = false;
            ForEachListEntry(AttributeListBytes(rec, a, &vol, stored, readOk), [&](const NtfsListEntry& entry) {
                if (refs.size() >= kMaxPieces) return false;
                if (IsStreamEntry(entry, stream)) refs.push_back({entry.firstVcn, entry.record});
                return true;
            });
        } else if (IsStream(rec, a, stream)) {
            data.Take(rec, a);
        }
        return a.type <= kAttrData;
    });
    uint64_t own = file_record::UsaOffset::At(rec.data()) == file_record::kUsaOffsetNumbered
                       ? file_record::RecordNumber::At(rec.data())
                       : fallbackNumber;
    std::vector<uint8_t> ext;
    CNearbyRecords nearby(vol, offset, rec, uint32_t(rec.size()), own);
    for (const ListRef& r : refs) {
        if (r.record == own || data.resident) continue;
        if (!(mftOpen && vol.ReadRecord(r.record, ext)) && !nearby.Read(r.record, ext)) continue;
        Bytes e = ext;
        ForEachAttribute(e, [&](const NtfsAttr& a) {
            if (IsStream(e, a, stream) && a.nonResident && nonresident::FirstVcn::Or(e, ~0ull, a.offset) == r.vcn) {
                data.Take(e, a);
                return false;
            }
            return a.type <= kAttrData;
        });
    }
}

} // namespace

ContentResult NtfsWriteContent(CPhysicalDisk& media, const CNode& node, const ContentSink& sink) {
    ContentResult failed;
    if (node.IsFolder()) return failed;
    CNtfsVolume vol(media);
    // A file found by the record search knows how far its record lies into its own volume, which
    // need not start where the searched range does.
    if (node.startOffset != 0 && node.startOffset <= node.location) vol.SetStartSector(node.location - node.startOffset);
    const bool bootGeometry = vol.LoadGeometry();
    if (!bootGeometry) vol.UseDefaultGeometry();
    // Extension records need the MFT; without it they are looked for around the base record.
    const bool mftOpen = vol.RecordSize() && vol.Open();

    uint64_t abs = node.location * vol.MediaSectorSize();
    if (abs < vol.VolumeStartByte()) return failed;
    uint64_t offset = abs - vol.VolumeStartByte();
    uint32_t recordSize = vol.RecordSize();
    if (!recordSize) {
        uint8_t head[kNtfsFixupBlock];
        if (!vol.ReadVolume(offset, head, sizeof head)) return failed;
        recordSize = file_record::BytesAllocated::At(head);
        if (recordSize < kNtfsFixupBlock || recordSize > kNtfsMaxRecordBytes) return failed;
    }
    std::vector<uint8_t> record(recordSize);
    vol.ReadVolume(offset, record.data(), record.size());
    if (!CheckFileRecord(record, recordSize)) return failed;
    // Without a boot sector the cluster size comes from the record's own attributes.
    if (!bootGeometry)
        if (uint32_t bpc = ClusterSizeOfRecord(record)) vol.SetClusterSize(bpc);

    DataStream data;
    if (bootGeometry) data.volumeClusters = vol.ClusterCount();
    const std::vector<uint8_t> stream = StreamOf(node);
    if ((node.flags & kNodeNtfsStream) && stream.empty()) return failed;
    GatherDataStream(vol, mftOpen, record, offset, node.recordId, data, stream);
    if (!data.found) return failed;

    CContentWriter writer(media, vol, sink, node.size);
    if (data.resident) return writer.Resident(data.residentValue);
    std::stable_sort(data.extents.begin(), data.extents.end(), [](const Extent& a, const Extent& b) { return a.vcn < b.vcn; });
    if (data.compressed) return writer.Compressed(data.extents, data.unitClusters);
    return writer.Plain(data.extents, data.initializedSize);
}

bool NtfsJudgeConditions(CPhysicalDisk& media, CNode& volumeRoot, const std::function<bool()>& stop) {
    CNtfsVolume vol(media);
    if (!vol.LoadGeometry() || !vol.Open()) return false;
    const uint32_t bpc = vol.BytesPerCluster();
    const uint32_t recordSize = vol.RecordSize();
    const uint64_t clusters = vol.ClusterCount();

    // The allocation map: $Bitmap's data, one bit per cluster.
    std::vector<uint8_t> record;
    if (!vol.ReadRecord(kNtfsBitmapRecord, record)) return false;
    DataStream data;
    data.volumeClusters = clusters;
    GatherDataStream(vol, true, record, vol.MapMft(uint64_t(kNtfsBitmapRecord) * recordSize), kNtfsBitmapRecord, data);
    if (!data.found) return false;
    std::vector<uint8_t> bits;
    const uint64_t mapBytes = (clusters + 7) / 8;
    if (data.resident) {
        bits = std::move(data.residentValue);
    } else {
        std::stable_sort(data.extents.begin(), data.extents.end(), [](const Extent& a, const Extent& b) { return a.vcn < b.vcn; });
        std::vector<NtfsRun> runs;
        uint64_t covered = 0;
        for (const Extent& e : data.extents) {
            if (e.vcn != covered / bpc) break; // a gap: what follows cannot be placed
            runs.push_back({e.length, e.lcn, e.sparse});
            covered += e.length * bpc;
            if (covered >= mapBytes) break;
        }
        if (!vol.ReadRunData(runs, std::min(covered, mapBytes), bits)) return false;
    }
    CClusterMap map;
    // Clusters the bitmap does not reach count as in use.
    if (!map.Reset(std::min<uint64_t>(clusters, uint64_t(bits.size()) * 8))) return false;
    map.TakeBits(bits);
    bits = {};

    std::vector<ClusterSpan> spans;
    const uint64_t mediaSector = vol.MediaSectorSize();
    bool stopped = false;
    ForEachNode(&volumeRoot, [&](CNode* n) {
        if (stopped || !TakesCondition(*n)) return;
        if (stop && stop()) {
            stopped = true;
            return;
        }
        // Items of another volume found by the record search, and records that no longer read
        // as they did, stay unknown.
        const uint64_t abs = n->location * mediaSector;
        if (n->startOffset != 0 || abs < vol.VolumeStartByte()) return;
        const uint64_t offset = abs - vol.VolumeStartByte();
        record.resize(recordSize);
        if (!vol.ReadVolume(offset, record.data(), record.size()) || !CheckFileRecord(record, recordSize)) return;
        data.Clear();
        const std::vector<uint8_t> stream = StreamOf(*n);
        if ((n->flags & kNodeNtfsStream) && stream.empty()) return;
        GatherDataStream(vol, true, record, offset, n->recordId, data, stream);
        if (!data.found) return;
        spans.clear();
        if (!data.resident)
            for (const Extent& e : data.extents)
                if (!e.sparse) spans.push_back({e.vcn, e.lcn, e.length});
        RecordCondition(*n, AssessSpans(map, spans, n->size, bpc));
    });
    return !stopped;
}

} // namespace kestrin
