#include "fs/ntfs/CNtfsRecordSearch.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <unordered_map>

#include "job/ScanContext.h"
#include "storage/CPhysicalDisk.h"

namespace kestrin {

using namespace layout::ntfs;

namespace {
// Bounds of what the search keeps until its end (a disk full of records stops keeping here and
// parses further records on their own, as without an MFT).
constexpr size_t kMaxSeen = 1u << 22;
constexpr size_t kMaxMftCopies = 64;
constexpr size_t kMaxHeldBytes = 128u << 20;
constexpr size_t kMaxMftRuns = 4096;
// Run lengths and clusters past this belong to no real MFT.
constexpr uint64_t kMaxMftClusters = 1ull << 40;

// Both read records of at least kNtfsFixupBlock bytes.
uint64_t BaseReference(const uint8_t* rec) { return file_record::BaseRecord::At(rec); }
bool Numbered(const uint8_t* rec) { return file_record::UsaOffset::At(rec) == file_record::kUsaOffsetNumbered; }
} // namespace

bool CNtfsRecordSearch::FoundVolume::Holds(uint64_t byte) const {
    for (const Extent& e : mft)
        if (byte >= e.firstByte && byte - e.firstByte < e.bytes) return true;
    return false;
}

// Extension records and attribute-list clusters for the base records parsed at the end: the
// extension records come from those the search met, the clusters from the base's volume.
class CNtfsRecordSearch::CFoundRecordSource final : public INtfsRecordSource {
public:
    CFoundRecordSource(const CNtfsRecordSearch& search, const Held& base, uint64_t volumeStart, uint32_t bpc)
        : m_search(search), m_base(base), m_volumeStart(volumeStart), m_bpc(bpc) {
        const uint8_t* r = base.record.data();
        m_number = Numbered(r) ? file_record::RecordNumber::At(r) : ~0u;
        m_sequence = file_record::Sequence::At(r);
    }

    bool ReadRecord(uint64_t number, std::vector<uint8_t>& out) override {
        if (number > UINT32_MAX) return false; // record numbers in headers are 32 bits wide
        // Lists name their base record too (the attributes it keeps itself).
        if (number == m_number) {
            out = m_base.record;
            return true;
        }
        // The extension record that names this base (number and sequence) and lies nearest to it:
        // copies from other volumes or older MFTs lie elsewhere.
        const Held* best = nullptr;
        uint64_t bestDistance = ~0ull;
        auto [lo, hi] = m_search.m_extensionByNumber.equal_range(uint32_t(number));
        for (auto it = lo; it != hi; ++it) {
            const Held& h = m_search.m_extensions[it->second];
            uint64_t ref = BaseReference(h.record.data());
            if (file_reference::Number(ref) != m_number) continue;
            uint16_t seq = file_reference::Sequence(ref);
            if (seq && m_sequence && seq != m_sequence) continue;
            uint64_t d = h.byte > m_base.byte ? h.byte - m_base.byte : m_base.byte - h.byte;
            if (d < bestDistance) best = &h, bestDistance = d;
        }
        if (!best) return false;
        out = best->record;
        return true;
    }

    bool ReadRunData(const std::vector<NtfsRun>& runs, uint64_t bytes, std::vector<uint8_t>& out) override {
        CPhysicalDisk* media = m_search.m_media;
        const uint32_t ss = m_search.m_sectorSize;
        if (!media || !m_bpc || bytes > kMaxAttrListBytes || m_bpc % ss != 0) return false;
        out.assign(size_t(bytes), 0);
        uint64_t pos = 0;
        for (const NtfsRun& r : runs) {
            if (pos >= bytes) break;
            if (r.lengthClusters > bytes / m_bpc + 1) return false;
            uint64_t n = std::min<uint64_t>(r.lengthClusters * m_bpc, bytes - pos);
            if (!r.sparse) {
                if (r.startCluster > (~0ull - m_volumeStart) / m_bpc - 1) return false;
                uint64_t at = m_volumeStart + r.startCluster * m_bpc;
                std::vector<uint8_t> buf(size_t((n + ss - 1) / ss * ss));
                if (!media->ReadSectors(buf.data(), uint32_t(buf.size()), at / ss, true)) return false;
                std::memcpy(out.data() + pos, buf.data(), size_t(n));
            }
            pos += n;
        }
        return pos >= bytes;
    }

private:
    const CNtfsRecordSearch& m_search;
    const Held& m_base;
    uint64_t m_volumeStart;
    uint32_t m_bpc;
    uint32_t m_number = ~0u;
    uint16_t m_sequence = 0;
};

CNtfsRecordSearch::CNtfsRecordSearch() : m_builder(std::make_unique<CNtfsTreeBuilder>()), m_copy(kNtfsMaxRecordBytes) {}

CNtfsRecordSearch::~CNtfsRecordSearch() = default;

void CNtfsRecordSearch::SetMedia(CPhysicalDisk* media) {
    m_media = media;
    m_sectorSize = media && media->GetSectorSize() >= 512 ? media->GetSectorSize() : 512;
}

void CNtfsRecordSearch::CountInto(FoundCounts* found) {
    m_found = found;
    m_builder->CountInto(found);
}

void CNtfsRecordSearch::Reset() {
    m_builder = std::make_unique<CNtfsTreeBuilder>();
    m_builder->CountInto(m_found);
    m_seen.clear();
    m_mftCopies.clear();
    m_extensions.clear();
    m_extensionByNumber.clear();
    m_deferred.clear();
    m_heldBytes = 0;
}

size_t CNtfsRecordSearch::Offer(uint64_t sector, std::span<const uint8_t> data, uint32_t byteInSector) {
    static_assert(index_record::kHeaderBytes <= file_record::kHeaderBytes);
    if (data.size() < file_record::kHeaderBytes) return 0;
    const uint8_t* p = data.data();
    bool index = index_record::Magic::Is(data, index_record::kMagic);
    if (!index && !file_record::Magic::Is(data, file_record::kMagic)) return 0;
    // The record's size comes from its own header: in a search the volume's may be unknown.
    const size_t node = index_record::kIndexHeader;
    uint64_t size = index ? uint64_t(index_header::BytesAllocated::At(p + node)) + node : file_record::BytesAllocated::At(p);
    if (size < kNtfsFixupBlock || size > kNtfsMaxRecordBytes || size % kNtfsFixupBlock != 0 || size > data.size())
        return 0;
    std::memcpy(m_copy.data(), p, size_t(size));
    std::span<uint8_t> rec(m_copy.data(), size_t(size));
    if (index) {
        if (!CheckIndexRecord(rec)) return 0;
        ParseIndexEntries(rec, [&](NtfsIndexFolder&& f) { m_builder->AddIndexFolder(std::move(f)); });
        return size_t(size);
    }
    if (!CheckFileRecord(rec, uint32_t(size))) return 0;
    const uint64_t byte = sector * m_sectorSize + byteInSector;
    auto hold = [&](std::vector<Held>& into) {
        if (m_heldBytes + size > kMaxHeldBytes) return false;
        m_heldBytes += size_t(size);
        into.push_back({byte, std::vector<uint8_t>(rec.begin(), rec.end())});
        return true;
    };
    if (BaseReference(p) != 0) {
        // Extension records are read only through their base; kept for the bases that name them.
        if (Numbered(p) && hold(m_extensions))
            m_extensionByNumber.emplace(file_record::RecordNumber::At(rec.data()), m_extensions.size() - 1);
        return size_t(size);
    }
    Bytes checked(rec.data(), rec.size());
    if (Numbered(p)) {
        uint32_t number = file_record::RecordNumber::At(rec.data());
        if (m_seen.size() < kMaxSeen) m_seen.emplace_back(number, byte);
        if (number == 0 && m_mftCopies.size() < kMaxMftCopies && IsMftRecord(checked)) hold(m_mftCopies);
    }
    if (HasAttributeList(checked) && hold(m_deferred)) return size_t(size);
    auto* e = new (std::nothrow) ScanEntry;
    if (!e) return 0;
    if (!ParseFileRecord(checked, *e, 0, nullptr, &m_extras)) {
        delete e;
        return size_t(size); // a sound record that yields no item is still a record
    }
    e->location = sector;
    m_builder->AddRecord(e, m_extras);
    return size_t(size);
}

void CNtfsRecordSearch::PlaceVolumes() {
    m_volumes.clear();
    struct Run {
        uint64_t vcn, length, lcn;
    };
    for (const Held& copy : m_mftCopies) {
        Bytes rec(copy.record);
        uint32_t bpc = ClusterSizeOfRecord(rec);
        uint32_t recordSize = file_record::BytesAllocated::Or(rec, 0);
        if (!bpc || !recordSize) continue;
        std::vector<Run> runs;
        ForEachAttribute(rec, [&](const NtfsAttr& a) {
            if (a.type != kAttrData || !a.nonResident || !a.Unnamed()) return a.type < kAttrData;
            auto start = nonresident::FirstVcn::Read(rec, a.offset);
            auto runOffset = nonresident::RunListOffset::Read(rec, a.offset);
            if (!start || *start != 0 || !runOffset) return false;
            std::vector<NtfsRun> decoded;
            DecodeRuns(rec.subspan(a.offset, a.length), *runOffset, decoded);
            uint64_t vcn = 0;
            for (const NtfsRun& r : decoded) {
                if (runs.size() >= kMaxMftRuns || r.lengthClusters > kMaxMftClusters || r.startCluster > kMaxMftClusters)
                    break;
                if (!r.sparse && r.lengthClusters) runs.push_back({vcn, r.lengthClusters, r.startCluster});
                vcn += r.lengthClusters;
            }
            return false;
        });
        if (runs.empty()) continue;
        // Each numbered record votes for the volume start that puts its number where it was found.
        std::unordered_map<uint64_t, uint32_t> votes;
        for (const auto& [number, byte] : m_seen) {
            uint64_t mftByte = uint64_t(number) * recordSize;
            uint64_t vcn = mftByte / bpc;
            for (const Run& r : runs) {
                if (vcn < r.vcn || vcn - r.vcn >= r.length) continue;
                uint64_t at = r.lcn * bpc + (mftByte - r.vcn * bpc);
                if (byte >= at && (byte - at) % m_sectorSize == 0) ++votes[byte - at];
                break;
            }
        }
        uint64_t start = 0;
        uint32_t best = 0;
        for (const auto& [s, n] : votes)
            if (n > best || (n == best && s < start)) start = s, best = n;
        // Two records at least: a lone copy of record 0 says nothing about where it lies.
        if (best < 2) continue;
        auto same = std::find_if(m_volumes.begin(), m_volumes.end(),
                                 [&](const FoundVolume& v) { return v.startByte == start; });
        if (same != m_volumes.end()) {
            same->votes = std::max(same->votes, best);
            continue;
        }
        FoundVolume v;
        v.startByte = start;
        v.bytesPerCluster = bpc;
        v.recordSize = recordSize;
        v.votes = best;
        for (const Run& r : runs) v.mft.push_back({start + r.lcn * bpc, r.length * bpc});
        m_volumes.push_back(std::move(v));
    }
    // Where two placed volumes claim a record, the one more records agreed on wins.
    std::stable_sort(m_volumes.begin(), m_volumes.end(),
                     [](const FoundVolume& a, const FoundVolume& b) { return a.votes > b.votes; });
}

const CNtfsRecordSearch::FoundVolume* CNtfsRecordSearch::VolumeAt(uint64_t byte) const {
    for (const FoundVolume& v : m_volumes)
        if (v.Holds(byte)) return &v;
    return nullptr;
}

uint64_t CNtfsRecordSearch::VolumeStartOf(uint64_t byte) const {
    if (const FoundVolume* v = VolumeAt(byte)) return v->startByte;
    if (!m_media) return kUnknownStart;
    const uint64_t sector = byte / m_sectorSize;
    uint64_t best = m_media->GetFirstSector();
    bool found = false;
    for (const auto* list : {&m_media->Partitions(), &m_media->SecondPartitions()})
        for (const PartitionRecord& r : *list)
            if (r.fsKind == FsKind::Ntfs && r.startSector <= sector && (!found || r.startSector > best))
                best = r.startSector, found = true;
    return best * m_sectorSize;
}

void CNtfsRecordSearch::AttachTo(CNode* top) {
    PlaceVolumes();
    for (const Held& h : m_deferred) {
        const FoundVolume* v = VolumeAt(h.byte);
        Bytes rec(h.record);
        uint32_t bpc = v ? v->bytesPerCluster : ClusterSizeOfRecord(rec);
        uint64_t start = VolumeStartOf(h.byte);
        CFoundRecordSource source(*this, h, start == kUnknownStart ? 0 : start, start == kUnknownStart ? 0 : bpc);
        auto* e = new (std::nothrow) ScanEntry;
        if (!e) break;
        if (!ParseFileRecord(rec, *e, 0, &source, &m_extras)) {
            delete e;
            continue;
        }
        e->location = h.byte / m_sectorSize;
        m_builder->AddRecord(e, m_extras);
    }
    CNode* dot = m_builder->Finish(top);
    // Files remember how far their record lies into its volume, so that their clusters are read
    // from that volume and not from the start of the searched range.
    if (dot)
        ForEachNode(dot, [&](CNode* n) {
            if (n->IsFolder() || n->carved) return;
            uint64_t startByte = VolumeStartOf(n->location * m_sectorSize);
            if (startByte == kUnknownStart) return;
            uint64_t start = startByte / m_sectorSize;
            if (n->location > start && n->location - start <= 0xFFFFFFFFull) n->startOffset = uint32_t(n->location - start);
        });
    Reset();
}

} // namespace kestrin
