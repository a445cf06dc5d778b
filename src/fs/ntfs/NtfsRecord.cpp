#include "fs/ntfs/NtfsRecord.h"

#include <cstring>

#include "util/DosDate.h"

namespace kestrin {

namespace {

// Attribute lists longer than this are not read: a list entry is at least 26 bytes, so this is
// tens of thousands of pieces, far beyond any real file.
constexpr uint64_t kMaxAttrListBytes = 1u << 20;
// Extension records one attribute list may make us read.
constexpr int kMaxListRecordReads = 64;

const uint8_t kFillPattern[4] = {0xF0, 0xFF, 0xFF, 0xF0};

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

bool TakeFileName(Bytes rec, const NtfsAttr& a, ScanEntry& e, bool& haveName) {
    if (haveName || a.nonResident) return false;
    // The namespace byte is read at attribute offset 0x59 (where it sits when the value starts at
    // the usual 0x18), whatever the value offset says.
    auto ns = ReadU8(rec, a.offset + 0x59);
    Bytes v = ResidentValue(rec, a);
    if (!ns || a.length <= 0x59 || v.size() < 0x42) return false;
    if (*ns == 2) return false; // DOS-only name
    uint8_t units = v[0x40];
    if (units == 0 || v.size() - 0x42 < size_t(units) * 2) return false; // name past the value
    e.parentRecordId = Le32(v.data());
    // The parent reference's sequence number is kept beside the record's own (see ScanEntry
    // reserved in NtfsRecord.h) to tell a parent folder from a later record at its number.
    e.reserved = (e.reserved & 0xFFFF) | uint32_t(Le16(v.data() + 6)) << 16;
    e.name = UnitsAt(v, 0x42, units);
    e.nameLength = units;
    haveName = true;
    return true;
}

// Size of the unnamed data attribute of a checked record (the first extent): true when found.
bool DataSizeOf(Bytes rec, uint64_t& size) {
    bool found = false;
    ForEachAttribute(rec, [&](const NtfsAttr& a) {
        if (a.type != kAttrData || !a.Unnamed()) return a.type < kAttrData;
        if (a.nonResident) {
            auto vcn = ReadLe64(rec, a.offset + 0x10);
            auto real = ReadLe64(rec, a.offset + 0x30);
            if (!vcn || *vcn != 0 || !real) return true;
            size = *real;
        } else {
            auto len = ReadLe32(rec, a.offset + 0x10);
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
ListOutcome WalkAttrList(Bytes list, ScanEntry& e, bool& haveName, INtfsRecordSource* source, bool& sizeFound) {
    std::vector<uint8_t> other;
    int reads = 0;
    for (size_t pos = 0; Fits(list, pos, 0x1A);) {
        uint32_t type = Le32(list.data() + pos);
        uint16_t len = Le16(list.data() + pos + 4);
        if (len < 0x1A || len > list.size() - pos) break;
        if (type > kAttrData) break;
        uint8_t nameLen = list[pos + 6], nameOff = list[pos + 7];
        uint64_t vcn = Le64(list.data() + pos + 8);
        uint64_t ref = Le64(list.data() + pos + 0x10) & 0xFFFFFFFFFFFFull;
        if (type == kAttrFileName && !haveName) {
            if (!source || ++reads > kMaxListRecordReads || !source->ReadRecord(ref, other)) return ListOutcome::Failed;
            ForEachAttribute(other, [&](const NtfsAttr& a) {
                if (a.type == kAttrFileName) TakeFileName(other, a, e, haveName);
                return !haveName && a.type <= kAttrFileName;
            });
        } else if (type == kAttrData && vcn == 0 && (nameLen == 0 || nameOff == 0)) {
            if (!source || ++reads > kMaxListRecordReads || !source->ReadRecord(ref, other)) return ListOutcome::Failed;
            uint64_t size = 0;
            if (DataSizeOf(other, size)) {
                e.size = size;
                sizeFound = true;
            }
            return ListOutcome::Data;
        }
        pos += len;
    }
    return ListOutcome::Ended;
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
    if (s.size() < 0x48) return false;
    const uint8_t* b = s.data();
    return b[0] != 0 && b[1] != 0 && b[2] == 0x90 && (Le16(b + 0x0B) & 1) == 0 && OneOrEven(b[0x0D]) &&
           Le32(b + 0x20) == 0 && b[0x24] == 0x80 && b[0x25] == 0x00 && UsableCluster(Le64(b + 0x28)) &&
           UsableCluster(Le64(b + 0x30)) && UsableCluster(Le64(b + 0x38)) && OneOrEven(Le32(b + 0x40)) &&
           OneOrEven(Le32(b + 0x44));
}

void DecodeRuns(Bytes attr, size_t offset, std::vector<NtfsRun>& runs) {
    uint64_t previous = 0;
    size_t pos = offset;
    while (pos < attr.size()) {
        uint8_t header = attr[pos];
        if (header == 0) break;
        unsigned lenSize = header & 0x0F, offSize = header >> 4;
        if (lenSize > 4 || offSize > 4) break;
        if (!Fits(attr, pos + 1, lenSize + offSize)) break;
        const uint8_t* lenField = attr.data() + pos + 1;
        const uint8_t* offField = lenField + lenSize;
        if (lenSize && std::memcmp(lenField, kFillPattern, lenSize) == 0) break;
        if (offSize && std::memcmp(offField, kFillPattern, offSize) == 0) break;
        uint64_t length = 0;
        for (unsigned i = lenSize; i-- > 0;) length = length << 8 | lenField[i];
        NtfsRun run;
        run.lengthClusters = length;
        if (offSize) {
            uint64_t delta = 0;
            for (unsigned i = offSize; i-- > 0;) delta = delta << 8 | offField[i];
            if (offField[offSize - 1] & 0x80) delta |= ~0ull << (8 * offSize);
            previous += delta; // two's complement: a negative delta moves backwards
            run.startCluster = previous;
        } else {
            run.sparse = true;
        }
        runs.push_back(run);
        pos += 1 + lenSize + offSize;
    }
}

bool CheckFileRecord(std::span<uint8_t> rec, uint32_t recordSize) {
    if (recordSize < kNtfsFixupBlock || rec.size() < recordSize) return false;
    rec = rec.first(recordSize);
    const uint8_t* b = rec.data();
    if (std::memcmp(b, "FILE", 4) != 0) return false;
    uint16_t usaOffset = Le16(b + 4), usaCount = Le16(b + 6);
    if (usaOffset != 42 && usaOffset != 48) return false;
    if (usaCount == 0 || uint32_t(usaCount - 1) != recordSize / kNtfsFixupBlock) return false;
    uint32_t arrayBytes = uint32_t(usaCount) * 2;
    uint32_t rounded = (arrayBytes + 7) & ~7u;
    if (usaOffset == 42 && rounded != arrayBytes) rounded -= 2;
    uint16_t firstAttr = Le16(b + 0x14);
    if (firstAttr % 8 != 0 || firstAttr != usaOffset + rounded) return false;
    uint32_t inUse = Le32(b + 0x18), allocated = Le32(b + 0x1C);
    if (inUse > allocated || allocated != recordSize || inUse % 8 != 0 || allocated % 8 != 0) return false;
    if (!ApplyFixup(rec, usaOffset, usaCount, inUse)) return false;

    int attributes = 0;
    size_t pos = firstAttr;
    // pos and inUse are multiples of 8, so pos < inUse leaves room for type and length.
    while (pos < inUse) {
        uint32_t type = Le32(b + pos);
        if (type == kAttrEnd) return attributes > 0;
        if (type == 0 || type % 0x10 != 0 || type > 0x100) return false;
        uint32_t len = Le32(b + pos + 4);
        // An attribute must also end inside bytes in use: the parsers rely on it.
        if (len == 0 || len % 8 != 0 || len > inUse - pos) return false;
        uint8_t nonResident = b[pos + 8];
        if (nonResident > 1) return false;
        if (nonResident) {
            if (type == kAttrStandardInfo || len < 0x40 || len < Le16(b + pos + 0x20)) return false;
        } else {
            if (len < 0x18 || uint64_t(len) < uint64_t(Le16(b + pos + 0x14)) + Le32(b + pos + 0x10)) return false;
        }
        ++attributes;
        pos += len;
    }
    return false; // no end marker inside bytes in use
}

bool CheckIndexRecord(std::span<uint8_t> rec) {
    if (rec.size() < 0x28 || std::memcmp(rec.data(), "INDX", 4) != 0) return false;
    uint32_t inUse = Le32(rec.data() + 0x1C), allocated = Le32(rec.data() + 0x20);
    if (inUse > allocated) return false;
    return ApplyFixup(rec, Le16(rec.data() + 4), Le16(rec.data() + 6), uint64_t(inUse) + 24);
}

void ForEachAttribute(Bytes rec, const std::function<bool(const NtfsAttr&)>& f) {
    auto first = ReadLe16(rec, 0x14);
    auto inUse = ReadLe32(rec, 0x18);
    if (!first || !inUse) return;
    uint64_t limit = std::min<uint64_t>(*inUse, rec.size());
    for (size_t pos = *first; pos + 16 <= limit;) {
        NtfsAttr a;
        a.type = Le32(rec.data() + pos);
        if (a.type == kAttrEnd) return;
        a.length = Le32(rec.data() + pos + 4);
        if (a.length < 16 || a.length > limit - pos) return;
        a.offset = pos;
        a.nonResident = rec[pos + 8] != 0;
        a.nameLength = rec[pos + 9];
        a.nameOffset = Le16(rec.data() + pos + 0x0A);
        if (!f(a)) return;
        pos += a.length;
    }
}

Bytes ResidentValue(Bytes rec, const NtfsAttr& a) {
    if (a.nonResident || a.length < 0x18) return {};
    uint32_t len = Le32(rec.data() + a.offset + 0x10);
    uint16_t off = Le16(rec.data() + a.offset + 0x14);
    if (off > a.length || a.length - off < len) return {};
    return rec.subspan(a.offset + off, len);
}

uint32_t ClusterSizeOf(Bytes rec, const NtfsAttr& a) {
    if (!a.nonResident) return 0;
    auto first = ReadLe64(rec, a.offset + 0x10), last = ReadLe64(rec, a.offset + 0x18);
    auto allocated = ReadLe64(rec, a.offset + 0x28);
    if (!first || !last || !allocated || *first != 0 || *last >= (1ull << 40)) return 0;
    uint64_t clusters = *last + 1;
    if (*allocated == 0 || *allocated % clusters) return 0;
    uint64_t bpc = *allocated / clusters;
    if (bpc < 512 || bpc > (2u << 20) || (bpc & (bpc - 1))) return 0;
    return uint32_t(bpc);
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
            Bytes v = ResidentValue(rec, a);
            if (v.size() < 32) return false;
            uint64_t t = Le64(v.data());
            if (Le64(v.data() + 8) != t || Le64(v.data() + 16) != t || Le64(v.data() + 24) != t) return false;
        } else if (a.type == kAttrFileName) {
            Bytes v = ResidentValue(rec, a);
            if (v.size() >= 0x42 && v[0x40] == want.size() && SameUnits(v, 0x42, want)) {
                match = true;
                return false;
            }
        }
        return true;
    });
    return match;
}

bool ParseFileRecord(Bytes rec, ScanEntry& e, uint32_t runningIndex, INtfsRecordSource* source) {
    if (rec.size() < 0x30) return false;
    uint16_t usaOffset = Le16(rec.data() + 4);
    uint16_t headerFlags = Le16(rec.data() + 0x16);
    bool isDir = headerFlags & 2;
    e.flags = uint8_t(headerFlags & 3);
    e.reserved = Le16(rec.data() + 0x10);
    bool haveName = false, result = false, decided = false;

    ForEachAttribute(rec, [&](const NtfsAttr& a) {
        switch (a.type) {
        case kAttrStandardInfo: {
            Bytes v = ResidentValue(rec, a);
            if (v.size() >= 16) {
                e.createdDate = DosDateFromFileTime(Le64(v.data()));
                e.modifiedDate = DosDateFromFileTime(Le64(v.data() + 8));
            }
            e.flags = uint8_t(headerFlags & 3);
            return true;
        }
        case kAttrFileName:
            TakeFileName(rec, a, e, haveName);
            return true;
        case kAttrList: {
            std::vector<uint8_t> nonResidentList;
            Bytes list;
            if (a.nonResident) {
                std::vector<NtfsRun> runs;
                uint16_t runOffset = ReadLe16(rec, a.offset + 0x20).value_or(0xFFFF);
                DecodeRuns(rec.subspan(a.offset, a.length), runOffset, runs);
                uint64_t real = ReadLe64(rec, a.offset + 0x30).value_or(~0ull);
                if (source && real <= kMaxAttrListBytes && source->ReadRunData(runs, real, nonResidentList))
                    list = nonResidentList;
            } else {
                list = ResidentValue(rec, a);
            }
            bool sizeFound = false;
            ListOutcome outcome = WalkAttrList(list, e, haveName, source, sizeFound);
            bool ok = outcome == ListOutcome::Data ? sizeFound : outcome == ListOutcome::Ended && haveName;
            if (isDir && ok) return true; // a folder goes on to its own attributes
            result = ok && !isDir;
            decided = true;
            return false;
        }
        case kAttrData:
            if (!a.Unnamed()) return true;
            if (!isDir) {
                if (a.nonResident)
                    e.size = ReadLe64(rec, a.offset + 0x30).value_or(0);
                else
                    e.size = ReadLe32(rec, a.offset + 0x10).value_or(0);
                result = true;
            }
            decided = true;
            return false;
        case kAttrIndexRoot:
            if (isDir) {
                Bytes v = ResidentValue(rec, a);
                if (v.size() >= 0x20 && Le32(v.data()) == kAttrFileName) {
                    uint32_t total = Le32(v.data() + 0x14), allocated = Le32(v.data() + 0x18);
                    uint64_t entry = 0x10 + uint64_t(Le32(v.data() + 0x10));
                    if (total == allocated && total >= 41 && entry + 0x14 <= v.size())
                        e.recordId = Le32(v.data() + entry + 0x10);
                }
            }
            return false;
        default:
            return true;
        }
    });
    if (!decided) result = haveName;

    if (usaOffset == 48)
        e.recordId = Le32(rec.data() + 0x2C);
    else if (e.recordId == 0)
        e.recordId = runningIndex;

    if (haveName) {
        if (IsMetadataName(e.name) || (e.name == u"." && e.parentRecordId == kNtfsRootRecord) ||
            e.recordId == e.parentRecordId) {
            std::fill(e.name.begin(), e.name.end(), u'\0');
            return false;
        }
    }
    return result;
}

void ParseIndexEntries(Bytes rec, const std::function<void(NtfsIndexFolder&&)>& f) {
    auto entriesOffset = ReadLe32(rec, 0x18);
    auto inUse = ReadLe32(rec, 0x1C);
    if (!entriesOffset || !inUse) return;
    uint64_t end = std::min<uint64_t>(uint64_t(*inUse) + 24, rec.size());
    for (uint64_t pos = uint64_t(*entriesOffset) + 24; pos + 16 <= end;) {
        const uint8_t* p = rec.data() + pos;
        uint16_t len = Le16(p + 8);
        uint8_t flags = p[0x0C];
        if (len <= 16 || (flags & 2) || len > end - pos) break;
        // Entries longer than 66 bytes carry a file-name key; its fields are read only when the
        // entry really holds them.
        if (len > 66 && len >= 0x10 + 0x42) {
            const uint8_t* key = p + 0x10;
            uint32_t attributes = Le32(key + 0x38);
            uint8_t units = key[0x40], ns = key[0x41];
            if ((attributes & 0x10000000) && ns != 2 && units > 0 && 0x10 + 0x42 + size_t(units) * 2 <= len) {
                NtfsIndexFolder folder;
                folder.recordId = Le32(p);
                folder.parentRecordId = Le32(key);
                folder.createdDate = DosDateFromFileTime(Le64(key + 0x08));
                folder.modifiedDate = DosDateFromFileTime(Le64(key + 0x20));
                folder.name = UnitsAt(rec, pos + 0x10 + 0x42, units);
                f(std::move(folder));
            }
        }
        pos += len;
    }
}

} // namespace kestrin
