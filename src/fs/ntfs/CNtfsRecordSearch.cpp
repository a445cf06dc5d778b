#include "fs/ntfs/CNtfsRecordSearch.h"

#include <cstring>
#include <new>

#include "scan/ScanContext.h"

namespace kestrin {

namespace {
constexpr size_t kMaxRecordBytes = 64u << 10;
}

CNtfsRecordSearch::CNtfsRecordSearch() : m_builder(std::make_unique<CNtfsTreeBuilder>()), m_copy(kMaxRecordBytes) {}

CNtfsRecordSearch::~CNtfsRecordSearch() = default;

void CNtfsRecordSearch::Prepare(CPhysicalDisk&, uint64_t, uint64_t, ScanContext&) {
    m_builder = std::make_unique<CNtfsTreeBuilder>();
}

bool CNtfsRecordSearch::OfferSector(uint64_t sector, std::span<const uint8_t> data) { return Offer(sector, data) > 0; }

void CNtfsRecordSearch::Finish(ScanContext& ctx) { AttachTo(ctx.top); }

void CNtfsRecordSearch::AttachTo(CNode* top) {
    m_builder->Finish(top);
    m_builder = std::make_unique<CNtfsTreeBuilder>();
}

size_t CNtfsRecordSearch::Offer(uint64_t sector, std::span<const uint8_t> data) {
    if (data.size() < 0x30) return 0;
    const uint8_t* p = data.data();
    bool index = std::memcmp(p, "INDX", 4) == 0;
    if (!index && std::memcmp(p, "FILE", 4) != 0) return 0;
    // The record's size comes from its own header: in a search the volume's may be unknown.
    uint64_t size = index ? uint64_t(Le32(p + 0x20)) + 24 : Le32(p + 0x1C);
    if (size < kNtfsFixupBlock || size > kMaxRecordBytes || size % kNtfsFixupBlock != 0 || size > data.size()) return 0;
    std::memcpy(m_copy.data(), p, size_t(size));
    std::span<uint8_t> rec(m_copy.data(), size_t(size));
    if (index) {
        if (!CheckIndexRecord(rec)) return 0;
        ParseIndexEntries(rec, [&](NtfsIndexFolder&& f) { m_builder->AddIndexFolder(std::move(f)); });
        return size_t(size);
    }
    // Extension records are read only through their base; the MFT that would lead from one to
    // the other may be a later one, so none is followed here.
    if (Le64(p + 0x20) != 0 || !CheckFileRecord(rec, uint32_t(size))) return 0;
    auto* e = new (std::nothrow) ScanEntry;
    if (!e) return 0;
    if (!ParseFileRecord(rec, *e, 0, nullptr)) {
        delete e;
        return size_t(size); // a sound record that yields no item is still a record
    }
    e->location = sector;
    m_builder->AddRecord(e);
    return size_t(size);
}

} // namespace kestrin
