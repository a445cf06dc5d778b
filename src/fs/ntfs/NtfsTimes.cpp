#include "fs/ntfs/NtfsTimes.h"

#include <vector>

#include "fs/CNode.h"
#include "fs/ntfs/CNtfsVolume.h"
#include "fs/ntfs/NtfsLayout.h"
#include "fs/ntfs/NtfsRecord.h"

namespace kestrin {

using namespace layout::ntfs;

bool NtfsRecordTimes(Bytes record, ItemTimes& out) {
    bool found = false;
    ForEachAttribute(record, [&](const NtfsAttr& a) {
        if (a.type != kAttrStandardInfo) return true;
        Bytes v = ResidentValue(record, a);
        if (v.size() < std_info::Accessed::kEnd) return true;
        out.created = FromNtfsTime(std_info::Created::At(v.data()));
        out.modified = FromNtfsTime(std_info::Modified::At(v.data()));
        out.changed = FromNtfsTime(std_info::RecordChanged::At(v.data()));
        out.accessed = FromNtfsTime(std_info::Accessed::At(v.data()));
        found = true;
        return false;
    });
    return found;
}

namespace {

// The record at the node's location, checked; false when it cannot be had or now names itself
// as another record.
bool ReadRecordTimes(CNtfsVolume& vol, const CNode& node, std::vector<uint8_t>& record, ItemTimes& out) {
    const uint64_t abs = node.location * vol.MediaSectorSize();
    if (node.location == 0 || abs < vol.VolumeStartByte()) return false;
    const uint64_t offset = abs - vol.VolumeStartByte();
    uint32_t recordSize = vol.RecordSize();
    if (!recordSize) {
        uint8_t head[kNtfsFixupBlock];
        if (!vol.ReadVolume(offset, head, sizeof head)) return false;
        recordSize = file_record::BytesAllocated::At(head);
        if (recordSize < kNtfsFixupBlock || recordSize > kNtfsMaxRecordBytes) return false;
    }
    record.resize(recordSize);
    if (!vol.ReadVolume(offset, record.data(), record.size()) || !CheckFileRecord(record, recordSize)) return false;
    // A record that names itself as another one now belongs to another item.
    if (file_record::UsaOffset::At(record.data()) == file_record::kUsaOffsetNumbered &&
        file_record::RecordNumber::At(record.data()) != node.recordId)
        return false;
    return NtfsRecordTimes(record, out);
}

} // namespace

bool NtfsReadTimes(CPhysicalDisk& media, const CNode& node, ItemTimes& out) {
    CNtfsVolume vol(media);
    // An item found by the record search knows how far its record lies into its own volume.
    if (node.startOffset != 0 && node.startOffset <= node.location) vol.SetStartSector(node.location - node.startOffset);
    if (!vol.LoadGeometry()) vol.UseDefaultGeometry();
    std::vector<uint8_t> record;
    return ReadRecordTimes(vol, node, record, out);
}

struct NtfsTimesReader::State {
    explicit State(CPhysicalDisk& m) : media(m), vol(m) {
        if (!vol.LoadGeometry()) vol.UseDefaultGeometry();
    }
    CPhysicalDisk& media;
    CNtfsVolume vol;
    std::vector<uint8_t> record;
};

NtfsTimesReader::NtfsTimesReader(CPhysicalDisk& media) : m_state(std::make_unique<State>(media)) {}
NtfsTimesReader::~NtfsTimesReader() = default;

bool NtfsTimesReader::Read(const CNode& node, ItemTimes& out) {
    // Items of the record search lie in volumes of their own.
    if (node.startOffset != 0) return NtfsReadTimes(m_state->media, node, out);
    return ReadRecordTimes(m_state->vol, node, m_state->record, out);
}

} // namespace kestrin
