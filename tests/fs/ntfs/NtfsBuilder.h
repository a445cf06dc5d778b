#pragma once
// Builds NTFS structures byte by byte for tests: file records with their attributes and
// update-sequence protection, index records, and small whole volumes in memory.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "util/Bytes.h"

namespace kestrin::test {

inline void Put16(std::vector<uint8_t>& b, size_t at, uint16_t v) { PutLe16(b.data() + at, v); }
inline void Put32(std::vector<uint8_t>& b, size_t at, uint32_t v) { PutLe32(b.data() + at, v); }
inline void Put64(std::vector<uint8_t>& b, size_t at, uint64_t v) { PutLe64(b.data() + at, v); }
inline void CopyInto(uint8_t* dst, const std::vector<uint8_t>& src) {
    if (!src.empty()) std::memcpy(dst, src.data(), src.size());
}

// 100 ns ticks of 2020-06-15 12:00 UTC, a date every test can recognise.
constexpr uint64_t kTestTime = 132366672000000000ull;

// Encodes runs (length, relative offset; offset 0 with sparse = true for a hole) as a run list.
struct RunSpec {
    uint64_t length;
    int64_t delta;
    bool sparse = false;
};
inline std::vector<uint8_t> EncodeRuns(const std::vector<RunSpec>& runs) {
    std::vector<uint8_t> out;
    auto bytesFor = [](uint64_t v, bool isSigned) {
        int n = 1;
        if (isSigned) {
            int64_t s = int64_t(v);
            while (n < 8 && !(s >= -(int64_t(1) << (8 * n - 1)) && s < (int64_t(1) << (8 * n - 1)))) ++n;
        } else {
            while (n < 8 && (v >> (8 * n))) ++n;
        }
        return n;
    };
    for (const RunSpec& r : runs) {
        int ls = bytesFor(r.length, false);
        int os = r.sparse ? 0 : bytesFor(uint64_t(r.delta), true);
        out.push_back(uint8_t(os << 4 | ls));
        for (int i = 0; i < ls; ++i) out.push_back(uint8_t(r.length >> (8 * i)));
        for (int i = 0; i < os; ++i) out.push_back(uint8_t(uint64_t(r.delta) >> (8 * i)));
    }
    out.push_back(0);
    return out;
}

// One file record under construction (1024 bytes, update-sequence offset 48 unless told).
class RecordBuilder {
public:
    explicit RecordBuilder(uint32_t number, uint16_t flags = 1, uint32_t size = 1024, uint16_t usaOffset = 48)
        : m_rec(size, 0), m_usaOffset(usaOffset) {
        std::memcpy(m_rec.data(), "FILE", 4);
        uint16_t count = uint16_t(size / 512 + 1);
        Put16(m_rec, 4, usaOffset);
        Put16(m_rec, 6, count);
        uint32_t array = count * 2u, rounded = (array + 7) & ~7u;
        if (usaOffset == 42 && rounded != array) rounded -= 2;
        m_pos = usaOffset + rounded;
        Put16(m_rec, 0x14, uint16_t(m_pos));
        Put16(m_rec, 0x16, flags);
        Put32(m_rec, 0x1C, size);
        if (usaOffset == 48) Put32(m_rec, 0x2C, number);
    }
    RecordBuilder& Base(uint64_t baseRef) {
        Put64(m_rec, 0x20, baseRef);
        return *this;
    }
    RecordBuilder& StdInfo(uint64_t created = kTestTime, uint64_t altered = kTestTime, bool sameTimes = true) {
        std::vector<uint8_t> v(48, 0);
        Put64(v, 0, created);
        Put64(v, 8, altered);
        Put64(v, 16, sameTimes ? created : created + 1);
        Put64(v, 24, sameTimes ? created : created + 2);
        return Resident(0x10, v);
    }
    // namespace: 0 POSIX, 1 Win32, 2 DOS, 3 both.
    RecordBuilder& FileName(uint32_t parent, const std::u16string& name, uint8_t nameSpace = 1, uint32_t attributes = 0) {
        std::vector<uint8_t> v(0x42 + name.size() * 2, 0);
        Put64(v, 0, parent | (1ull << 48));
        Put64(v, 0x08, kTestTime);
        Put64(v, 0x20, kTestTime);
        Put32(v, 0x38, attributes);
        v[0x40] = uint8_t(name.size());
        v[0x41] = nameSpace;
        for (size_t i = 0; i < name.size(); ++i) Put16(v, 0x42 + 2 * i, name[i]);
        return Resident(0x30, v);
    }
    RecordBuilder& Resident(uint32_t type, const std::vector<uint8_t>& value, const std::u16string& name = u"") {
        size_t nameBytes = name.size() * 2;
        size_t valueOffset = (0x18 + nameBytes + 7) & ~size_t(7);
        size_t len = (valueOffset + value.size() + 7) & ~size_t(7);
        Header(type, len, false, name);
        Put32(m_rec, m_pos + 0x10, uint32_t(value.size()));
        Put16(m_rec, m_pos + 0x14, uint16_t(valueOffset));
        CopyInto(m_rec.data() + m_pos + valueOffset, value);
        m_pos += len;
        return *this;
    }
    RecordBuilder& NonResident(uint32_t type, const std::vector<uint8_t>& runList, uint64_t realSize, uint64_t startVcn = 0,
                               uint64_t lastVcn = 0, uint16_t attrFlags = 0, uint8_t unitExponent = 0,
                               const std::u16string& name = u"") {
        size_t header = unitExponent ? 0x48 : 0x40;
        size_t nameBytes = name.size() * 2;
        size_t runOffset = (header + nameBytes + 7) & ~size_t(7);
        size_t len = (runOffset + runList.size() + 7) & ~size_t(7);
        Header(type, len, true, name, header);
        Put16(m_rec, m_pos + 0x0C, attrFlags);
        Put64(m_rec, m_pos + 0x10, startVcn);
        Put64(m_rec, m_pos + 0x18, lastVcn);
        Put16(m_rec, m_pos + 0x20, uint16_t(runOffset));
        m_rec[m_pos + 0x22] = unitExponent;
        Put64(m_rec, m_pos + 0x28, realSize);
        Put64(m_rec, m_pos + 0x30, realSize);
        Put64(m_rec, m_pos + 0x38, realSize);
        CopyInto(m_rec.data() + m_pos + runOffset, runList);
        m_pos += len;
        return *this;
    }
    // An attribute-list entry (26 bytes, its name, padding).
    static void ListEntry(std::vector<uint8_t>& list, uint32_t type, uint64_t startVcn, uint64_t record, uint16_t id = 0,
                          const std::u16string& name = u"") {
        size_t at = list.size();
        size_t len = (0x1A + name.size() * 2 + 7) & ~size_t(7);
        list.resize(at + len, 0);
        Put32(list, at, type);
        Put16(list, at + 4, uint16_t(len));
        list[at + 6] = uint8_t(name.size());
        list[at + 7] = 0x1A;
        Put64(list, at + 8, startVcn);
        Put64(list, at + 0x10, record | (1ull << 48));
        Put16(list, at + 0x18, id);
        for (size_t i = 0; i < name.size(); ++i) Put16(list, at + 0x1A + 2 * i, name[i]);
    }
    // A resident index root over file names with the given entries (each a complete entry).
    RecordBuilder& IndexRoot(const std::vector<uint8_t>& entries) {
        std::vector<uint8_t> v(0x20 + entries.size() + 16, 0);
        Put32(v, 0, 0x30);
        Put32(v, 8, 4096);
        Put32(v, 0x10, 0x10);
        uint32_t total = uint32_t(0x10 + entries.size() + 16);
        Put32(v, 0x14, total);
        Put32(v, 0x18, total);
        CopyInto(v.data() + 0x20, entries);
        Put16(v, 0x20 + entries.size() + 8, 16); // last entry
        v[0x20 + entries.size() + 12] = 2;
        return Resident(0x90, v, u"$I30");
    }
    // Ends the attributes, sets bytes in use and applies the update-sequence protection.
    std::vector<uint8_t> Finish(uint16_t usn = 0x0102) {
        Put32(m_rec, m_pos, 0xFFFFFFFF);
        uint32_t inUse = uint32_t(m_pos + 8);
        Put32(m_rec, 0x18, inUse);
        Protect(m_rec, m_usaOffset, usn);
        return m_rec;
    }
    // Writes `usn` at the end of every 512-byte block, keeping the originals in the array.
    static void Protect(std::vector<uint8_t>& rec, uint16_t usaOffset, uint16_t usn) {
        uint16_t count = Le16(rec.data() + 6);
        Put16(rec, usaOffset, usn);
        for (uint16_t i = 1; i < count && size_t(i) * 512 <= rec.size(); ++i) {
            size_t tail = size_t(i) * 512 - 2;
            rec[usaOffset + 2 * i] = rec[tail];
            rec[usaOffset + 2 * i + 1] = rec[tail + 1];
            Put16(rec, tail, usn);
        }
    }
    size_t Used() const { return m_pos; }

private:
    void Header(uint32_t type, size_t len, bool nonResident, const std::u16string& name, size_t nameAt = 0x18) {
        Put32(m_rec, m_pos, type);
        Put32(m_rec, m_pos + 4, uint32_t(len));
        m_rec[m_pos + 8] = nonResident ? 1 : 0;
        m_rec[m_pos + 9] = uint8_t(name.size());
        Put16(m_rec, m_pos + 0x0A, name.empty() ? 0 : uint16_t(nameAt));
        for (size_t i = 0; i < name.size(); ++i) Put16(m_rec, m_pos + nameAt + 2 * i, name[i]);
    }
    std::vector<uint8_t> m_rec;
    size_t m_pos;
    uint16_t m_usaOffset;
};

// An index entry carrying a file-name key (folders have attribute bit 0x10000000).
inline std::vector<uint8_t> IndexEntry(uint32_t record, uint32_t parent, const std::u16string& name, bool folder,
                                       uint8_t nameSpace = 1) {
    size_t keyLen = 0x42 + name.size() * 2;
    size_t len = (0x10 + keyLen + 7) & ~size_t(7);
    std::vector<uint8_t> e(len, 0);
    Put64(e, 0, record | (1ull << 48));
    Put16(e, 8, uint16_t(len));
    Put16(e, 0x0A, uint16_t(keyLen));
    Put64(e, 0x10, parent | (1ull << 48));
    Put64(e, 0x18, kTestTime);
    Put64(e, 0x30, kTestTime);
    Put32(e, 0x10 + 0x38, folder ? 0x10000000 : 0x20);
    e[0x10 + 0x40] = uint8_t(name.size());
    e[0x10 + 0x41] = nameSpace;
    for (size_t i = 0; i < name.size(); ++i) Put16(e, 0x10 + 0x42 + 2 * i, name[i]);
    return e;
}

// An "INDX" record (4096 bytes) holding `entries` followed by the last entry.
inline std::vector<uint8_t> IndexRecord(const std::vector<std::vector<uint8_t>>& entries, uint16_t usn = 0x0304) {
    std::vector<uint8_t> r(4096, 0);
    std::memcpy(r.data(), "INDX", 4);
    Put16(r, 4, 0x28);
    Put16(r, 6, 9);
    size_t pos = 0x40;
    Put32(r, 0x18, uint32_t(pos - 24));
    for (auto& e : entries) {
        CopyInto(r.data() + pos, e);
        pos += e.size();
    }
    Put16(r, pos + 8, 16);
    r[pos + 12] = 2;
    pos += 16;
    Put32(r, 0x1C, uint32_t(pos - 24));
    Put32(r, 0x20, 4096 - 24);
    RecordBuilder::Protect(r, 0x28, usn);
    return r;
}

// A small volume in memory: 512-byte sectors, 4096-byte clusters, 1024-byte records, the MFT
// at cluster 4 (64 records), its mirror at cluster 2.
class VolumeBuilder {
public:
    static constexpr uint32_t kCluster = 4096;
    static constexpr uint64_t kMftCluster = 4;
    static constexpr uint32_t kMftRecords = 64;

    explicit VolumeBuilder(uint64_t clusters = 256) : m_image(clusters * kCluster, 0), m_clusters(clusters) {
        uint8_t* b = m_image.data();
        b[0] = 0xEB;
        b[1] = 0x52;
        b[2] = 0x90;
        std::memcpy(b + 3, "NTFS    ", 8);
        PutLe16(b + 0x0B, 512);
        b[0x0D] = 8;
        b[0x15] = 0xF8;
        b[0x24] = 0x80;
        PutLe64(b + 0x28, clusters * 8 - 1);
        PutLe64(b + 0x30, kMftCluster);
        PutLe64(b + 0x38, 2);
        PutLe32(b + 0x40, 0xF6);
        PutLe32(b + 0x44, 1);
        b[510] = 0x55;
        b[511] = 0xAA;
        // Record 0: $MFT over its 16 clusters; record 5: the root folder.
        SetRecord(0, RecordBuilder(0)
                         .StdInfo()
                         .FileName(5, u"$MFT")
                         .NonResident(0x80, EncodeRuns({{kMftRecords / 4, int64_t(kMftCluster)}}), kMftRecords * 1024ull, 0,
                                      kMftRecords / 4 - 1)
                         .Finish());
        SetRecord(5, RecordBuilder(5, 3).StdInfo().FileName(5, u".", 3).Finish());
    }
    void SetRecord(uint32_t n, const std::vector<uint8_t>& rec) {
        CopyInto(m_image.data() + kMftCluster * kCluster + size_t(n) * 1024, rec);
    }
    void SetMirror(const std::vector<uint8_t>& rec0) { CopyInto(m_image.data() + 2 * kCluster, rec0); }
    void PutCluster(uint64_t cluster, const std::vector<uint8_t>& data) {
        CopyInto(m_image.data() + cluster * kCluster, data);
    }
    uint8_t* RecordBytes(uint32_t n) { return m_image.data() + kMftCluster * kCluster + size_t(n) * 1024; }
    uint64_t RecordSector(uint32_t n) const { return (kMftCluster * kCluster + uint64_t(n) * 1024) / 512; }
    std::vector<uint8_t>& Image() { return m_image; }

private:
    std::vector<uint8_t> m_image;
    uint64_t m_clusters;
};

} // namespace kestrin::test
