#pragma once
// NTFS on-disk structures: the boot-sector test, file-record check with its update-sequence
// fix-up, data-run decoding, index records, and the parsing of one base file record into a scan
// entry. Everything here works on byte spans and trusts none of them.
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "fs/CNode.h"
#include "fs/ntfs/NtfsLayout.h"
#include "util/Bytes.h"

namespace kestrin {

// The fix-up stride: NTFS protects every 512-byte block of a multi-sector record, whatever the
// volume's sector size.
constexpr uint32_t kNtfsFixupBlock = 512;
constexpr uint32_t kNtfsRootRecord = 5;
constexpr uint32_t kNtfsBitmapRecord = 6;
// The largest file record and cluster any reader here accepts.
constexpr uint32_t kNtfsMaxRecordBytes = 64u << 10;
constexpr uint32_t kNtfsMaxClusterBytes = 2u << 20;
// Attribute lists longer than this are not read: an entry is at least 26 bytes, so this is tens
// of thousands of pieces, far beyond any real file.
constexpr uint64_t kMaxAttrListBytes = 1u << 20;

enum NtfsAttrType : uint32_t {
    kAttrStandardInfo = 0x10,
    kAttrList = 0x20,
    kAttrFileName = 0x30,
    kAttrVolumeName = 0x60,
    kAttrData = 0x80,
    kAttrIndexRoot = 0x90,
    kAttrEnd = 0xFFFFFFFF,
};

// The engine's own boot-sector test: the clusters-per-record fields are taken as 32-bit values.
bool NtfsBootTest(Bytes sector);

// One run of a non-resident attribute. Sparse runs (no offset field) keep their length so that
// content can be laid out by VCN; walks that only want clusters skip them.
struct NtfsRun {
    uint64_t lengthClusters = 0;
    uint64_t startCluster = 0;
    bool sparse = false;
};

// Appends the runs of the run list at `offset` in `attribute`. Length and offset fields may be up
// to 8 bytes wide (the offset signed, relative to the previous run's start). Decoding ends at a 0
// header (true) or at the first malformed run (false), which is not appended: a field wider than
// 8 bytes, a field that starts like the F0 FF FF F0 fill pattern, the end of the span, lengths
// adding up past the largest VCN, a start cluster below 0 or, when `volumeClusters` is not 0, a
// run that starts past the volume's last cluster (one that only ends past it is kept for the
// readers to clip). The runs read before it stay.
bool DecodeRuns(Bytes attribute, size_t offset, std::vector<NtfsRun>& runs, uint64_t volumeClusters = 0);

// Checks a file record in place (signature, header geometry, fix-up over the blocks inside bytes
// in use, attribute headers). True when sound; the fix-up has then been applied.
bool CheckFileRecord(std::span<uint8_t> record, uint32_t recordSize);
// The same check, telling a record that was formatted but never used (a sound header and no
// attribute before the end marker) from a malformed one.
enum class NtfsRecordCheck { Sound, Unused, Malformed };
NtfsRecordCheck ExamineFileRecord(std::span<uint8_t> record, uint32_t recordSize);
// Checks an "INDX" record in place (fix-up over the blocks that end inside the index node's bytes
// in use).
bool CheckIndexRecord(std::span<uint8_t> record);

// True when a checked record is the one of "$MFT" (or "$MFTMirr" with `mirror`).
bool IsMftRecord(Bytes record, bool mirror = false);

// One attribute of a checked record, as located by FindAttribute / ForEachAttribute.
struct NtfsAttr {
    uint32_t type = 0;
    size_t offset = 0; // in the record
    uint32_t length = 0;
    bool nonResident = false;
    uint8_t nameLength = 0;
    uint16_t nameOffset = 0;
    bool Unnamed() const { return nameLength == 0 || nameOffset == 0; }
};

// Calls `f` for each attribute header of a checked record until `f` returns false, the end marker
// or bytes in use.
void ForEachAttribute(Bytes record, const std::function<bool(const NtfsAttr&)>& f);
// The resident value of an attribute, empty when it does not fit.
Bytes ResidentValue(Bytes record, const NtfsAttr& a);

// The cluster size the first non-resident attribute piece of a checked record shows (allocated
// bytes over its clusters), for volumes whose boot sector is gone; 0 when it shows none (not a
// power of two between 512 bytes and 2 MiB).
uint32_t ClusterSizeOfRecord(Bytes record);
// True when a checked record has an attribute list.
bool HasAttributeList(Bytes record);

// What record parsing needs from the volume: extension records and non-resident attribute lists.
class INtfsRecordSource {
public:
    virtual ~INtfsRecordSource() = default;
    // Reads and checks the record with this number; false when it cannot be had.
    virtual bool ReadRecord(uint64_t recordNumber, std::vector<uint8_t>& out) = 0;
    // Reads `bytes` bytes of a non-resident attribute's runs (sparse runs as zeros).
    virtual bool ReadRunData(const std::vector<NtfsRun>& runs, uint64_t bytes, std::vector<uint8_t>& out) = 0;
};

// One entry of an attribute list: a piece of an attribute (from `firstVcn` on) kept in `record`.
struct NtfsListEntry {
    uint32_t type = 0;
    uint64_t firstVcn = 0;
    uint64_t record = 0; // the record number, without its sequence number
    bool unnamed = false;
    Bytes name; // the attribute's name (UTF-16LE), empty when unnamed or not inside the entry
};

// Calls `f` for each entry of an attribute list until `f` returns false, an entry is too short
// or runs past the list.
template <class F>
void ForEachListEntry(Bytes list, F&& f) {
    namespace al = layout::ntfs::attr_list;
    for (size_t pos = 0; Fits(list, pos, al::kMinEntryBytes);) {
        const uint8_t* p = list.data() + pos;
        uint16_t length = al::Length::At(p);
        if (length < al::kMinEntryBytes || length > list.size() - pos) return;
        NtfsListEntry entry;
        entry.type = al::Type::At(p);
        entry.firstVcn = al::FirstVcn::At(p);
        entry.record = layout::ntfs::file_reference::Number(al::Record::At(p));
        entry.unnamed = al::NameLength::At(p) == 0 || al::NameOffset::At(p) == 0;
        if (!entry.unnamed && al::NameOffset::At(p) + size_t(al::NameLength::At(p)) * 2 <= length)
            entry.name = list.subspan(pos + al::NameOffset::At(p), size_t(al::NameLength::At(p)) * 2);
        if (!f(entry)) return;
        pos += length;
    }
}

// The bytes of attribute list `a` of `record`: its resident value, or its runs read through
// `source` into `storage`. A non-resident list longer than kMaxAttrListBytes, or without a
// source, is empty. `readOk` is false when the runs were not read or their read failed; `storage`
// then holds what could be read, zeros elsewhere.
Bytes AttributeListBytes(Bytes record, const NtfsAttr& a, INtfsRecordSource* source, std::vector<uint8_t>& storage,
                         bool& readOk);

// A name of a record besides the one its entry shows: a further hard link, in its own folder.
struct NtfsLink {
    uint32_t parentRecordId = 0;
    uint16_t parentSequence = 0;
    std::u16string name;
};
// A named data stream of a record and its length.
struct NtfsStream {
    std::u16string name;
    uint64_t size = 0;
};
// What a record holds beyond the item its entry describes: its further Win32 or POSIX names (the
// DOS 8.3 twin of a long name is no name of its own) and its named data streams. The system's own
// streams (those of the metadata files, and "$" streams of "$" files) are left out. Callers keep
// one across records so that its room is reused.
struct NtfsRecordExtras {
    std::vector<NtfsLink> links;
    std::vector<NtfsStream> streams;
    void Clear() {
        links.clear();
        streams.clear();
    }
    bool Empty() const { return links.empty() && streams.empty(); }
};
// Bounds on what one record may add: NTFS itself allows 1024 names per file.
constexpr size_t kMaxNtfsLinks = 1024;
constexpr size_t kMaxNtfsStreams = 256;

// Parses a checked base record into `e`: name, parent, dates, flags, size and recordId. While the
// tree is built, `e.reserved` holds the record's sequence number (low 16 bits) and that of its
// parent reference (high 16 bits).
// `runningIndex` is the record's position in the MFT walk (used when the header carries no record
// number). True when the record yields an item. `source` may be null (extension records are then
// out of reach). With `extras`, the record's further names and its streams are gathered there
// too (emptied first).
bool ParseFileRecord(Bytes record, ScanEntry& e, uint32_t runningIndex, INtfsRecordSource* source,
                     NtfsRecordExtras* extras = nullptr);

// A folder named by an index entry of an INDX record.
struct NtfsIndexFolder {
    uint32_t recordId = 0;
    uint32_t parentRecordId = 0;
    uint16_t createdDate = 0;
    uint16_t modifiedDate = 0;
    std::u16string name;
};
// Walks the entries of a checked INDX record and reports those that describe folders.
void ParseIndexEntries(Bytes record, const std::function<void(NtfsIndexFolder&&)>& f);

} // namespace kestrin
