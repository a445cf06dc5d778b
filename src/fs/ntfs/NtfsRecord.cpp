#include "fs/ntfs/NtfsRecord.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "fs/DirectoryIndex.h"
#include "util/DosDate.h"

namespace kestrin {

using namespace layout::ntfs;

namespace {

// Extension records one attribute list may make us read.
constexpr int kMaxListRecordReads = 256;
// Run fields wider than this end a run list: a length or a cluster number is 64 bits at most.
constexpr unsigned kMaxRunFieldBytes = 8;
// VCNs are signed 64-bit numbers on disk: a run list whose lengths add up past this is malformed.
constexpr uint64_t kMaxVcn = uint64_t(INT64_MAX);
// Resident values the index-root test needs before it trusts the root's first entry.
constexpr uint32_t kMinRootIndexBytes = 41;
// The smallest cluster a non-resident attribute's sizes may show.
constexpr uint64_t kMinClusterBytes = 512;
// Beyond this last VCN a piece's sizes say nothing about the cluster size.
constexpr uint64_t kMaxShownVcn = 1ull << 40;

const uint8_t kFillPattern[4] = {0xF0, 0xFF, 0xFF, 0xF0};

// True when the field's bytes (its first four at most) are those the fill pattern starts with.
bool LooksLikeFill(const uint8_t* field, unsigned size) {
    return size && std::memcmp(field, kFillPattern, std::min<unsigned>(size, sizeof kFillPattern)) == 0;
}

bool OneOrEven(uint32_t v) { return v != 0 && (v == 1 || (v & 1) == 0); }
bool UsableCluster(uint64_t v) { return v != 0 && v != ~0ull; }

bool SameUnits(Bytes b, size_t at, std::u16string_view s) {
    if (!Fits(b, at, s.size() * 2)) return false;
    for (size_t i = 0; i < s.size(); ++i)
        if (Le16(b.data() + at + 2 * i) != s[i]) return false;
    return true;
}

std::u16string UnitsAt(Bytes b, size_t at, size_t count) {
    std::u16string s(count, u'\0');
    for (size_t i = 0; i < count; ++i) s[i] = char16_t(Le16(b.data() + at + 2 * i));
    return s;
}

// Shared fix-up: the last two bytes of every 512-byte block that ends at or below `limit` must
// hold the update-sequence number; they are restored from the array.
bool ApplyFixup(std::span<uint8_t> rec, uint32_t usaOffset, uint32_t usaCount, uint64_t limit) {
    if (usaCount == 0 || usaOffset > rec.size() || (rec.size() - usaOffset) / 2 < usaCount) return false;
    uint8_t* usa = rec.data() + usaOffset;
    for (uint32_t i = 0; i + 1 < usaCount; ++i) {
        uint64_t end = uint64_t(i + 1) * kNtfsFixupBlock;
        if (end > rec.size() || end > limit) break;
        uint8_t* tail = rec.data() + end - 2;
        if (tail[0] != usa[0] || tail[1] != usa[1]) return false;
        tail[0] = usa[2 * (i + 1)];
        tail[1] = usa[2 * (i + 1) + 1];
    }
    return true;
}

// The file name's namespace byte where it sits when the value starts right after the resident
// header.
using NamespaceAtUsualPlace = LeField<uint8_t, resident::kHeaderBytes + file_name::Namespace::kOffset>;

// The records below this number belong to the file system itself; of them only the root folder
// can carry a stream a user made.
constexpr uint32_t kFirstUserRecord = 24;

// A Win32, POSIX or Win32-and-DOS name of a file-name attribute (a DOS-only name is not read).
struct FileNameRef {
    uint32_t parentRecordId = 0;
    uint16_t parentSequence = 0;
    Bytes units; // the name, UTF-16LE
};

bool ReadFileName(Bytes rec, const NtfsAttr& a, FileNameRef& out) {
    if (a.nonResident) return false;
    // The namespace byte is read at its usual place, whatever the value offset says.
    auto ns = NamespaceAtUsualPlace::Read(rec, a.offset);
    Bytes v = ResidentValue(rec, a);
    if (!ns || a.length <= NamespaceAtUsualPlace::kOffset || v.size() < file_name::kNameOffset) return false;
    if (*ns == file_name::kNamespaceDos) return false;
    uint8_t units = file_name::NameLength::At(v.data());
    if (units == 0 || v.size() - file_name::kNameOffset < size_t(units) * 2) return false; // name past the value
    out.parentRecordId = file_name::ParentRecord::At(v.data());
    out.parentSequence = file_name::ParentSequence::At(v.data());
    out.units = v.subspan(file_name::kNameOffset, size_t(units) * 2);
    return true;
}

// The first name a record shows goes into its entry; with `extras` every later one is kept there
// as a further link, once (a folder's attributes can be met both in its list and in itself).
void TakeFileName(Bytes rec, const NtfsAttr& a, ScanEntry& e, bool& haveName, NtfsRecordExtras* extras) {
    if (haveName && !extras) return;
    FileNameRef fn;
    if (!ReadFileName(rec, a, fn)) return;
    std::u16string name = UnitsAt(fn.units, 0, fn.units.size() / 2);
    if (!haveName) {
        e.parentRecordId = fn.parentRecordId;
        // The parent reference's sequence number is kept beside the record's own (see ScanEntry
        // reserved in NtfsRecord.h) to tell a parent folder from a later record at its number.
        e.reserved = (e.reserved & 0xFFFF) | uint32_t(fn.parentSequence) << 16;
        e.nameLength = uint8_t(name.size());
        e.name = std::move(name);
        haveName = true;
        return;
    }
    if (extras->links.size() >= kMaxNtfsLinks) return;
    if (fn.parentRecordId == e.parentRecordId && e.name == name) return;
    for (const NtfsLink& l : extras->links)
        if (l.parentRecordId == fn.parentRecordId && l.name == name) return;
    extras->links.push_back({fn.parentRecordId, fn.parentSequence, std::move(name)});
}

// A named data attribute (its piece from VCN 0, which carries the length) as a stream.
void TakeStream(Bytes rec, const NtfsAttr& a, NtfsRecordExtras* extras) {
    if (!extras || a.Unnamed() || extras->streams.size() >= kMaxNtfsStreams) return;
    if (a.nameOffset > a.length || (a.length - a.nameOffset) / 2 < a.nameLength) return;
    uint64_t size = 0;
    if (a.nonResident) {
        auto vcn = nonresident::FirstVcn::Read(rec, a.offset);
        auto real = nonresident::DataSize::Read(rec, a.offset);
        if (!vcn || *vcn != 0 || !real) return;
        size = *real;
    } else {
        auto len = resident::ValueLength::Read(rec, a.offset);
        if (!len) return;
        size = *len;
    }
    std::u16string name = UnitsAt(rec, a.offset + a.nameOffset, a.nameLength);
    for (const NtfsStream& s : extras->streams)
        if (s.name == name) return;
    extras->streams.push_back({std::move(name), size});
}

// Size of the unnamed data attribute of a checked record (the first extent): true when found.
bool DataSizeOf(Bytes rec, uint64_t& size) {
    bool found = false;
    ForEachAttribute(rec, [&](const NtfsAttr& a) {
        if (a.type != kAttrData || !a.Unnamed()) return a.type < kAttrData;
        if (a.nonResident) {
            auto vcn = nonresident::FirstVcn::Read(rec, a.offset);
            auto real = nonresident::DataSize::Read(rec, a.offset);
            if (!vcn || *vcn != 0 || !real) return true;
            size = *real;
        } else {
            auto len = resident::ValueLength::Read(rec, a.offset);
            if (!len) return false;
            size = *len;
        }
        found = true;
        return false;
    });
    return found;
}

enum class ListOutcome { Failed, Data, Ended };

// Walks attribute-list entries: file names and the data size come from the records they name.
// With `extras`, every record holding names is read for all of them, and the named data
// attributes after the unnamed one are taken as streams.
// `own` is the record's number (~0 when unknown): further names and streams are taken only from
// records that belong to it, not from an extension record since given to another file.
ListOutcome WalkAttrList(Bytes list, ScanEntry& e, bool& haveName, INtfsRecordSource* source, bool& sizeFound,
                         NtfsRecordExtras* extras, uint64_t own) {
    std::vector<uint8_t> other;
    auto ours = [own](Bytes r) {
        uint64_t base = file_record::BaseRecord::Or(r, 0);
        if (base != 0) return own == ~0ull || file_reference::Number(base) == own;
        return own == ~0ull || file_record::UsaOffset::Or(r, 0) != file_record::kUsaOffsetNumbered ||
               file_record::RecordNumber::Or(r, 0) == own;
    };
    int reads = 0;
    ListOutcome outcome = ListOutcome::Ended;
    // Records already read for their names: each holds several, and the list names each once.
    uint64_t namesRead[kMaxListRecordReads];
    int namesReadCount = 0;
    auto readOther = [&](uint64_t record) {
        return source && ++reads <= kMaxListRecordReads && source->ReadRecord(record, other);
    };
    ForEachListEntry(list, [&](const NtfsListEntry& entry) {
        if (entry.type > kAttrData) return false;
        if (entry.type == kAttrFileName && (!haveName || extras)) {
            if (std::find(namesRead, namesRead + namesReadCount, entry.record) != namesRead + namesReadCount) return true;
            if (!readOther(entry.record)) {
                // A further name out of reach takes nothing from what was found.
                if (haveName || outcome == ListOutcome::Data) return true;
                outcome = ListOutcome::Failed;
                return false;
            }
            namesRead[namesReadCount++] = entry.record;
            const bool mine = ours(other);
            ForEachAttribute(other, [&](const NtfsAttr& a) {
                if (a.type == kAttrFileName && (!haveName || mine)) TakeFileName(other, a, e, haveName, extras);
                return (extras || !haveName) && a.type <= kAttrFileName;
            });
        } else if (entry.type == kAttrData && entry.firstVcn == 0 && entry.unnamed && outcome != ListOutcome::Data) {
            if (!readOther(entry.record)) {
                outcome = ListOutcome::Failed;
                return false;
            }
            uint64_t size = 0;
            if (DataSizeOf(other, size)) {
                e.size = size;
                sizeFound = true;
            }
            outcome = ListOutcome::Data;
            return extras != nullptr;
        } else if (entry.type == kAttrData && entry.firstVcn == 0 && !entry.unnamed && extras) {
            if (entry.name.empty() || !readOther(entry.record) || !ours(other)) return true;
            Bytes ext = other;
            ForEachAttribute(ext, [&](const NtfsAttr& a) {
                if (a.type == kAttrData && !a.Unnamed() && a.nameLength * 2u == entry.name.size() &&
                    Fits(ext, a.offset + a.nameOffset, entry.name.size()) &&
                    std::memcmp(ext.data() + a.offset + a.nameOffset, entry.name.data(), entry.name.size()) == 0 &&
                    (!a.nonResident || nonresident::FirstVcn::Or(ext, ~0ull, a.offset) == 0)) {
                    TakeStream(ext, a, extras);
                    return false;
                }
                return a.type <= kAttrData;
            });
        }
        return true;
    });
    return outcome;
}

// The cluster size a non-resident attribute's first piece shows (allocated bytes over its
// clusters); 0 when it shows none.
uint32_t ClusterSizeOf(Bytes rec, const NtfsAttr& a) {
    if (!a.nonResident) return 0;
    auto first = nonresident::FirstVcn::Read(rec, a.offset), last = nonresident::LastVcn::Read(rec, a.offset);
    auto allocated = nonresident::AllocatedSize::Read(rec, a.offset);
    if (!first || !last || !allocated || *first != 0 || *last >= kMaxShownVcn) return 0;
    uint64_t clusters = *last + 1;
    if (*allocated == 0 || *allocated % clusters) return 0;
    uint64_t bpc = *allocated / clusters;
    if (bpc < kMinClusterBytes || bpc > kNtfsMaxClusterBytes || (bpc & (bpc - 1))) return 0;
    return uint32_t(bpc);
}

bool IsMetadataName(std::u16string_view n) {
    static const std::u16string_view kNames[] = {u"$MFT",     u"$MFTMirr", u"$LogFile", u"$Volume", u"$AttrDef",
                                                 u"$Bitmap",  u"$Boot",    u"$BadClus", u"$Secure", u"$UpCase"};
    for (auto k : kNames)
        if (n == k) return true;
    return false;
}

} // namespace

bool NtfsBootTest(Bytes s) {
    namespace nb = layout::ntfs_boot;
    if (s.size() < boot::kTestedBytes) return false;
    const uint8_t* b = s.data();
    return layout::JumpByte0::At(b) != 0 && layout::JumpByte1::At(b) != 0 &&
           layout::JumpByte2::At(b) == boot::kJumpNop && (nb::BytesPerSector::At(b) & 1) == 0 &&
           OneOrEven(nb::SectorsPerCluster::At(b)) && nb::Unused32::At(b) == 0 &&
           nb::DriveNumber::At(b) == boot::kFixedDiskDrive && nb::Reserved25::At(b) == 0 &&
           UsableCluster(nb::TotalSectors::At(b)) && UsableCluster(nb::MftCluster::At(b)) &&
           UsableCluster(nb::MftMirrorCluster::At(b)) && OneOrEven(boot::ClustersPerRecord32::At(b)) &&
           OneOrEven(boot::ClustersPerIndexBlock32::At(b));
}

bool DecodeRuns(Bytes attribute, size_t offset, std::vector<NtfsRun>& runs, uint64_t volumeClusters) {
    int64_t previous = 0;
    uint64_t vcn = 0;
    size_t pos = offset;
    while (pos < attribute.size()) {
        uint8_t header = attribute[pos];
        if (header == 0) return true;
        unsigned lenSize = header & run_header::kLengthSizeMask, offSize = header >> run_header::kOffsetSizeShift;
        if (lenSize > kMaxRunFieldBytes || offSize > kMaxRunFieldBytes) return false;
        if (!Fits(attribute, pos + 1, lenSize + offSize)) return false;
        const uint8_t* lenField = attribute.data() + pos + 1;
        const uint8_t* offField = lenField + lenSize;
        if (LooksLikeFill(lenField, lenSize) || LooksLikeFill(offField, offSize)) return false;
        uint64_t length = 0;
        for (unsigned i = lenSize; i-- > 0;) length = length << 8 | lenField[i];
        if (length > kMaxVcn - vcn) return false;
        NtfsRun run;
        run.lengthClusters = length;
        if (offSize) {
            uint64_t raw = 0;
            for (unsigned i = offSize; i-- > 0;) raw = raw << 8 | offField[i];
            if (offSize < 8 && (offField[offSize - 1] & run_header::kSignBit)) raw |= ~0ull << (8 * offSize);
            // previous is never negative, so only a positive delta can overflow.
            const int64_t delta = int64_t(raw);
            if (delta > 0 && previous > INT64_MAX - delta) return false;
            const int64_t lcn = previous + delta;
            if (lcn < 0) return false;
            const uint64_t start = uint64_t(lcn);
            // A run that starts inside the volume and runs past its end is kept: the readers copy
            // what lies inside and report the rest as beyond the volume.
            if (volumeClusters && start >= volumeClusters) return false;
            previous = lcn;
            run.startCluster = start;
        } else {
            run.sparse = true;
        }
        vcn += length;
        runs.push_back(run);
        pos += 1 + lenSize + offSize;
    }
    return false;
}

NtfsRecordCheck ExamineFileRecord(std::span<uint8_t> rec, uint32_t recordSize) {
    constexpr auto kMalformed = NtfsRecordCheck::Malformed;
    if (recordSize < kNtfsFixupBlock || rec.size() < recordSize) return kMalformed;
    rec = rec.first(recordSize);
    const uint8_t* b = rec.data();
    if (!file_record::Magic::Is(rec, file_record::kMagic)) return kMalformed;
    uint16_t usaOffset = file_record::UsaOffset::At(b), usaCount = file_record::UsaCount::At(b);
    if (usaOffset != file_record::kUsaOffsetOld && usaOffset != file_record::kUsaOffsetNumbered) return kMalformed;
    if (usaCount == 0 || uint32_t(usaCount - 1) != recordSize / kNtfsFixupBlock) return kMalformed;
    uint32_t arrayBytes = uint32_t(usaCount) * 2;
    uint32_t rounded = (arrayBytes + 7) & ~7u;
    if (usaOffset == file_record::kUsaOffsetOld && rounded != arrayBytes) rounded -= 2;
    uint16_t firstAttr = file_record::FirstAttribute::At(b);
    if (firstAttr % 8 != 0 || firstAttr != usaOffset + rounded) return kMalformed;
    uint32_t inUse = file_record::BytesInUse::At(b), allocated = file_record::BytesAllocated::At(b);
    if (inUse > allocated || allocated != recordSize || inUse % 8 != 0 || allocated % 8 != 0) return kMalformed;
    if (!ApplyFixup(rec, usaOffset, usaCount, inUse)) return kMalformed;

    int attributes = 0;
    size_t pos = firstAttr;
    // pos and inUse are multiples of 8, so pos < inUse leaves room for type and length.
    while (pos < inUse) {
        const uint8_t* p = b + pos;
        uint32_t type = attr::Type::At(p);
        if (type == kAttrEnd) return attributes > 0 ? NtfsRecordCheck::Sound : NtfsRecordCheck::Unused;
        if (type == 0 || type % attr::kTypeStep != 0 || type > attr::kMaxType) return kMalformed;
        uint32_t len = attr::Length::At(p);
        // An attribute must also end inside bytes in use: the parsers rely on it. Every attribute
        // is longer than its common header (the shortest, resident, header is checked below).
        if (len < attr::kHeaderBytes || len % 8 != 0 || len > inUse - pos) return kMalformed;
        uint8_t nonResident = attr::NonResident::At(p);
        if (nonResident > 1) return kMalformed;
        if (nonResident) {
            if (type == kAttrStandardInfo || len < nonresident::kHeaderBytes || len < nonresident::RunListOffset::At(p))
                return kMalformed;
        } else {
            if (len < resident::kHeaderBytes ||
                uint64_t(len) < uint64_t(resident::ValueOffset::At(p)) + resident::ValueLength::At(p))
                return kMalformed;
        }
        ++attributes;
        pos += len;
    }
    return kMalformed; // no end marker inside bytes in use
}

bool CheckFileRecord(std::span<uint8_t> rec, uint32_t recordSize) {
    return ExamineFileRecord(rec, recordSize) == NtfsRecordCheck::Sound;
}

bool CheckIndexRecord(std::span<uint8_t> rec) {
    if (rec.size() < index_record::kHeaderBytes || !index_record::Magic::Is(rec, index_record::kMagic)) return false;
    const uint8_t* b = rec.data();
    const uint8_t* node = b + index_record::kIndexHeader;
    uint32_t inUse = index_header::BytesInUse::At(node), allocated = index_header::BytesAllocated::At(node);
    if (inUse > allocated) return false;
    return ApplyFixup(rec, index_record::UsaOffset::At(b), index_record::UsaCount::At(b),
                      uint64_t(inUse) + index_record::kIndexHeader);
}

void ForEachAttribute(Bytes rec, const std::function<bool(const NtfsAttr&)>& f) {
    auto first = file_record::FirstAttribute::Read(rec);
    auto inUse = file_record::BytesInUse::Read(rec);
    if (!first || !inUse) return;
    uint64_t limit = std::min<uint64_t>(*inUse, rec.size());
    for (size_t pos = *first; pos + attr::kHeaderBytes <= limit;) {
        const uint8_t* p = rec.data() + pos;
        NtfsAttr a;
        a.type = attr::Type::At(p);
        if (a.type == kAttrEnd) return;
        a.length = attr::Length::At(p);
        if (a.length < attr::kHeaderBytes || a.length > limit - pos) return;
        a.offset = pos;
        a.nonResident = attr::NonResident::At(p) != 0;
        a.nameLength = attr::NameLength::At(p);
        a.nameOffset = attr::NameOffset::At(p);
        if (!f(a)) return;
        pos += a.length;
    }
}

Bytes ResidentValue(Bytes rec, const NtfsAttr& a) {
    if (a.nonResident || a.length < resident::kHeaderBytes) return {};
    const uint8_t* p = rec.data() + a.offset;
    uint32_t len = resident::ValueLength::At(p);
    uint16_t off = resident::ValueOffset::At(p);
    if (off > a.length || a.length - off < len) return {};
    return rec.subspan(a.offset + off, len);
}

Bytes AttributeListBytes(Bytes rec, const NtfsAttr& a, INtfsRecordSource* source, std::vector<uint8_t>& storage,
                         bool& readOk) {
    readOk = false;
    if (!a.nonResident) {
        readOk = true;
        return ResidentValue(rec, a);
    }
    std::vector<NtfsRun> runs;
    uint16_t runOffset = nonresident::RunListOffset::Or(rec, 0xFFFF, a.offset);
    DecodeRuns(rec.subspan(a.offset, a.length), runOffset, runs);
    uint64_t real = nonresident::DataSize::Or(rec, ~0ull, a.offset);
    if (!source || real > kMaxAttrListBytes) return {};
    readOk = source->ReadRunData(runs, real, storage);
    return storage;
}

uint32_t ClusterSizeOfRecord(Bytes rec) {
    // With an attribute list, a data attribute may be only the first of several pieces, whose
    // clusters do not add up to its allocated size: only single-piece attributes count then
    // (the list itself, index allocations, bitmaps).
    const bool listed = HasAttributeList(rec);
    uint32_t bpc = 0;
    ForEachAttribute(rec, [&](const NtfsAttr& a) {
        if (listed && a.type == kAttrData) return true;
        bpc = ClusterSizeOf(rec, a);
        return bpc == 0;
    });
    return bpc;
}

bool HasAttributeList(Bytes rec) {
    bool found = false;
    ForEachAttribute(rec, [&](const NtfsAttr& a) {
        found = a.type == kAttrList;
        return !found && a.type < kAttrList;
    });
    return found;
}

bool IsMftRecord(Bytes rec, bool mirror) {
    std::u16string_view want = mirror ? u"$MFTMirr" : u"$MFT";
    bool match = false;
    ForEachAttribute(rec, [&](const NtfsAttr& a) {
        if (a.type == 0 || a.type > kAttrData) return false;
        if (a.type == kAttrStandardInfo) {
            // The metadata files keep the four times they were made with.
            Bytes v = ResidentValue(rec, a);
            if (v.size() < std_info::Accessed::kEnd) return false;
            const uint8_t* p = v.data();
            uint64_t t = std_info::Created::At(p);
            if (std_info::Modified::At(p) != t || std_info::RecordChanged::At(p) != t || std_info::Accessed::At(p) != t)
                return false;
        } else if (a.type == kAttrFileName) {
            Bytes v = ResidentValue(rec, a);
            if (v.size() >= file_name::kNameOffset && file_name::NameLength::At(v.data()) == want.size() &&
                SameUnits(v, file_name::kNameOffset, want)) {
                match = true;
                return false;
            }
        }
        return true;
    });
    return match;
}

bool ParseFileRecord(Bytes rec, ScanEntry& e, uint32_t runningIndex, INtfsRecordSource* source,
                     NtfsRecordExtras* extras) {
    if (extras) extras->Clear();
    if (rec.size() < file_record::kHeaderBytes) return false;
    constexpr uint16_t kItemFlags = file_record::kFlagInUse | file_record::kFlagDirectory;
    const uint8_t* b = rec.data();
    uint16_t usaOffset = file_record::UsaOffset::At(b);
    uint16_t headerFlags = file_record::Flags::At(b);
    bool isDir = headerFlags & file_record::kFlagDirectory;
    e.flags = uint8_t(headerFlags & kItemFlags);
    e.reserved = file_record::Sequence::At(b);
    bool haveName = false, result = false, decided = false;
    // Set once the unnamed data attribute decided the item: only named data is looked at then.
    bool streamsOnly = false;

    ForEachAttribute(rec, [&](const NtfsAttr& a) {
        if (streamsOnly) {
            if (a.type == kAttrData) TakeStream(rec, a, extras);
            return a.type <= kAttrData;
        }
        switch (a.type) {
        case kAttrStandardInfo: {
            Bytes v = ResidentValue(rec, a);
            if (v.size() >= std_info::Modified::kEnd) {
                e.createdDate = DosDateFromFileTime(std_info::Created::At(v.data()));
                e.modifiedDate = DosDateFromFileTime(std_info::Modified::At(v.data()));
            }
            e.flags = uint8_t(headerFlags & kItemFlags);
            return true;
        }
        case kAttrFileName:
            TakeFileName(rec, a, e, haveName, extras);
            return true;
        case kAttrList: {
            std::vector<uint8_t> stored;
            bool readOk = false;
            Bytes list = AttributeListBytes(rec, a, source, stored, readOk);
            if (!readOk) list = {}; // a list read in part would name the wrong pieces
            bool sizeFound = false;
            const uint64_t own = usaOffset == file_record::kUsaOffsetNumbered ? file_record::RecordNumber::At(b)
                                 : runningIndex                                ? runningIndex
                                                                               : ~0ull;
            ListOutcome outcome = WalkAttrList(list, e, haveName, source, sizeFound, extras, own);
            bool ok = outcome == ListOutcome::Data ? sizeFound : outcome == ListOutcome::Ended && haveName;
            if (isDir && ok) return true; // a folder goes on to its own attributes
            result = ok && !isDir;
            decided = true;
            return false;
        }
        case kAttrData:
            if (!a.Unnamed()) {
                TakeStream(rec, a, extras);
                return true;
            }
            if (!isDir) {
                if (a.nonResident)
                    e.size = nonresident::DataSize::Or(rec, 0, a.offset);
                else
                    e.size = resident::ValueLength::Or(rec, 0, a.offset);
                result = true;
            }
            decided = true;
            streamsOnly = extras != nullptr;
            return streamsOnly;
        case kAttrIndexRoot:
            if (isDir) {
                // A folder's own number is the parent named by the first entry of its root.
                using FirstEntryParent = LeField<uint32_t, index_entry::kKeyOffset + file_name::ParentRecord::kOffset>;
                Bytes v = ResidentValue(rec, a);
                if (v.size() >= index_root::kHeaderBytes && index_root::IndexedType::At(v.data()) == kAttrFileName) {
                    const uint8_t* node = v.data() + index_root::kIndexHeader;
                    uint32_t total = index_header::BytesInUse::At(node);
                    uint32_t allocated = index_header::BytesAllocated::At(node);
                    uint64_t entry = index_root::kIndexHeader + uint64_t(index_header::EntriesOffset::At(node));
                    if (total == allocated && total >= kMinRootIndexBytes && entry + FirstEntryParent::kEnd <= v.size())
                        e.recordId = FirstEntryParent::At(v.data() + entry);
                }
            }
            return false;
        default:
            return true;
        }
    });
    // A record without an unnamed data attribute is a file only when it is a folder (index views
    // such as the extend folder's quota and object-id files hold no content).
    if (!decided) result = haveName && isDir;

    if (usaOffset == file_record::kUsaOffsetNumbered)
        e.recordId = file_record::RecordNumber::At(b);
    else if (e.recordId == 0)
        e.recordId = runningIndex;

    if (extras && !extras->streams.empty()) {
        // The metadata files' streams ($Secure's, $UpCase's, ...) and the "$" streams the system
        // keeps on its "$" files under the extend folder are not a user's.
        const bool systemFile = !e.name.empty() && e.name[0] == u'$';
        if (e.recordId < kFirstUserRecord) extras->streams.clear();
        std::erase_if(extras->streams, [&](const NtfsStream& st) { return systemFile && st.name[0] == u'$'; });
    }
    if (haveName) {
        if (IsMetadataName(e.name) || (e.name == u"." && e.parentRecordId == kNtfsRootRecord)) {
            std::fill(e.name.begin(), e.name.end(), u'\0');
            return false;
        }
        // A record naming itself as its parent is damaged in that one reference: it keeps its
        // name and contents and goes to "Lost" like any item whose folder is unknown.
        if (e.recordId == e.parentRecordId) e.parentRecordId = kUnknownParent;
    }
    return result;
}

void ParseIndexEntries(Bytes rec, const std::function<void(NtfsIndexFolder&&)>& f) {
    constexpr size_t kNode = index_record::kIndexHeader;
    constexpr size_t kNameInEntry = index_entry::kKeyOffset + file_name::kNameOffset;
    auto entriesOffset = index_header::EntriesOffset::Read(rec, kNode);
    auto inUse = index_header::BytesInUse::Read(rec, kNode);
    if (!entriesOffset || !inUse) return;
    uint64_t end = std::min<uint64_t>(uint64_t(*inUse) + kNode, rec.size());
    for (uint64_t pos = uint64_t(*entriesOffset) + kNode; pos + index_entry::kHeaderBytes <= end;) {
        const uint8_t* p = rec.data() + pos;
        uint16_t len = index_entry::Length::At(p);
        uint8_t flags = index_entry::Flags::At(p);
        if (len <= index_entry::kHeaderBytes || (flags & index_entry::kFlagLast) || len > end - pos) break;
        // Entries that reach past a file name's fixed part carry a file-name key; its fields are
        // read only when the entry really holds them.
        if (len >= kNameInEntry) {
            const uint8_t* key = p + index_entry::kKeyOffset;
            uint32_t attributes = file_name::FileAttributes::At(key);
            uint8_t units = file_name::NameLength::At(key), ns = file_name::Namespace::At(key);
            if ((attributes & file_name::kAttributeHasIndex) && ns != file_name::kNamespaceDos && units > 0 &&
                kNameInEntry + size_t(units) * 2 <= len) {
                NtfsIndexFolder folder;
                folder.recordId = index_entry::FileRecord::At(p);
                folder.parentRecordId = file_name::ParentRecord::At(key);
                // Folders known only from an index show its last-access time as their modified date.
                folder.createdDate = DosDateFromFileTime(file_name::Created::At(key));
                folder.modifiedDate = DosDateFromFileTime(file_name::Accessed::At(key));
                folder.name = UnitsAt(rec, pos + kNameInEntry, units);
                f(std::move(folder));
            }
        }
        pos += len;
    }
}

} // namespace kestrin
