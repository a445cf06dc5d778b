#include "carve/scanners/CCompoundScanner.h"

#include <algorithm>
#include <cstring>

#include "carve/CSectorReader.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {
constexpr uint8_t kMagic[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
constexpr uint32_t kFreeSector = 0xFFFFFFFF;
// The compound file header (little-endian): the sector size as a power of two, the number of
// extra allocation-table index sectors, and the first 109 allocation-table sector numbers.
using SectorShift = LeField<uint16_t, 30>;
using ExtraIndexSectors = LeField<uint32_t, 72>;
constexpr size_t kHeaderEntries = 109;
constexpr size_t kHeaderEntriesAt = 76;
constexpr size_t kTableEntrySize = 4;
// With extra index sectors the size is taken as (extra × 2^14 + 0x3680) sectors.
constexpr unsigned kExtraIndexShift = 14;
constexpr uint64_t kExtraIndexBase = 0x3680;
constexpr size_t kDirectoryEntrySize = 128;
constexpr std::u16string_view kRootEntry = u"Root Entry";
// The format knows 512- and 4096-byte sectors; anything from 128 bytes to 64 KiB is taken, more
// would make the size rule's shifts meaningless.
constexpr uint16_t kMinSectorShift = 7;
constexpr uint16_t kMaxSectorShift = 16;

// Length in units of the zero-terminated wide name that opens a directory entry (at most 32).
size_t EntryNameLength(const uint8_t* entry) {
    size_t n = 0;
    while (n < 32 && (entry[2 * n] | entry[2 * n + 1]) != 0) ++n;
    return n;
}

bool EntryNameIs(const uint8_t* entry, std::u16string_view name) {
    if (EntryNameLength(entry) != name.size()) return false;
    for (size_t i = 0; i < name.size(); ++i)
        if (Le16(entry + 2 * i) != name[i]) return false;
    return true;
}

bool UnitIsZero(const uint8_t* entry, size_t unit) { return (entry[2 * unit] | entry[2 * unit + 1]) == 0; }

// False when the entry's name can be none of the names the walk compares, judged from the
// terminators alone: a name of length L has its first zero unit at L. Almost every sector the
// walk passes over is file data and fails here without the name being measured.
bool MayNameAny(const uint8_t* entry) {
    return UnitIsZero(entry, kRootEntry.size()) || UnitIsZero(entry, CCompoundScanner::kStreams[0].size()) ||
           UnitIsZero(entry, CCompoundScanner::kStreams[1].size()) ||
           UnitIsZero(entry, CCompoundScanner::kStreams[2].size());
}
} // namespace

bool CCompoundScanner::IsHeader(std::span<const uint8_t> sector) { return MatchAt(sector, 0, kMagic, sizeof kMagic); }

// The size the allocation tables describe. With no extra index sectors: every table sector but
// the last covers (C / 4) container sectors, and the last one is counted up to its first free
// entry. That last table sector is read at its sector number counted from the start of the
// source, not from the hit: the rule is kept as it stands, so a file that does not begin at the
// start of the source usually gets the size from an unrelated sector.
uint64_t CCompoundScanner::SizeFromAllocationTable(std::span<const uint8_t> sector) {
    auto shift = SectorShift::Read(sector);
    auto extra = ExtraIndexSectors::Read(sector);
    if (!shift || !extra || *shift < kMinSectorShift || *shift > kMaxSectorShift) return 0;
    if (!Fits(sector, kHeaderEntriesAt, kHeaderEntries * kTableEntrySize)) return 0;
    uint64_t c = uint64_t(1) << *shift;
    if (*extra != 0) return c * ((uint64_t(*extra) << kExtraIndexShift) + kExtraIndexBase);

    const uint8_t* entries = sector.data() + kHeaderEntriesAt;
    size_t k = 0;
    while (k < kHeaderEntries && Le32(entries + kTableEntrySize * k) != kFreeSector) ++k;
    if (k == 0) return 0; // no table sector at all: nothing to count
    const uint64_t perSector = c / kTableEntrySize; // entries in one table sector
    uint64_t before = uint64_t(k - 1) * perSector * c;
    uint32_t last = Le32(entries + kTableEntrySize * (k - 1));

    CSectorReader* r = Reader();
    uint32_t bps = r->SectorSize();
    uint64_t at = (uint64_t(last) + 1) * c / bps;
    if (at >= r->EndSector()) return 0;
    // The three document classes ask for the same sector for one hit, and the files of one
    // writer mostly name the same one: the last ones read are kept (the source does not change
    // while it is scanned).
    CSectorReader::TableSectors& tables = r->CompoundTableSectors();
    CSectorReader::TableSector* found = nullptr;
    for (CSectorReader::TableSector& t : tables.kept)
        if (t.sector == at && t.data.size() == c) found = &t;
    if (!found) {
        found = &tables.kept[tables.next];
        tables.next = (tables.next + 1) % CSectorReader::kTableSectorsKept;
    }
    CSectorReader::TableSector& table = *found;
    if (table.sector != at || table.data.size() != c) {
        table.sector = UINT64_MAX;
        table.data.assign(size_t(c), 0);
        if (!r->Read(table.data.data(), uint32_t(c), at)) {
            r->CountScannerFailure();
            return 0;
        }
        uint64_t present = r->BytesFrom(at * bps);
        if (present < c) std::memset(table.data.data() + present, 0, size_t(c - present));
        table.sector = at;
    }
    size_t j = k; // the count goes on from the header's entries
    while (j < perSector && Le32(table.data.data() + kTableEntrySize * j) != kFreeSector) ++j;
    return before + j * c + c;
}

// Walks forward from the hit one sector at a time, looking at the first 128 bytes of each as a
// directory entry, until an entry names the stream (or a root entry is followed closely by one).
// Another compound header on the way, 20 MiB walked or the end of the source end the walk
// without success. The walk is done once per hit for all three streams: each stream's answer
// is the one its own walk would give, since the walks differ only in when they succeed.
bool CCompoundScanner::DirectoryNamesStream(uint64_t sectorNumber) {
    CSectorReader::DirectoryWalk& memo = Reader()->CompoundDirectoryWalk();
    if (memo.sector != sectorNumber) {
        memo.found = WalkDirectory(sectorNumber);
        memo.sector = sectorNumber;
    }
    return memo.found >> m_streamIndex & 1;
}

namespace {
// What the walk needs to know of one sector: the streams its first entry names (bit k for
// kStreams[k]), whether that entry is a root entry, whether the sector opens a container.
// Nothing at all for almost every sector.
constexpr uint8_t kMarkRoot = 0x08;
constexpr uint8_t kMarkHeader = 0x10;

uint8_t SectorMark(const uint8_t* s) {
    uint8_t mark = std::memcmp(s, kMagic, sizeof kMagic) == 0 ? kMarkHeader : 0;
    if (!MayNameAny(s)) return mark;
    size_t len = EntryNameLength(s);
    for (int k = 0; k < 3; ++k)
        if (len == CCompoundScanner::kStreams[k].size() && EntryNameIs(s, CCompoundScanner::kStreams[k]))
            mark |= uint8_t(1 << k);
    if (len == kRootEntry.size() && EntryNameIs(s, kRootEntry)) mark |= kMarkRoot;
    return mark;
}

// The marks of sectors [first, first + n), whose bytes are at `data`: those already known from an
// earlier walk are taken from the ring, the others are worked out and kept. A walk goes forward
// from its hit and the hits come in order, so the known run only grows at its end, or starts over.
void MarkSectors(CSectorReader::SectorMarks& marks, uint64_t first, uint32_t n, const uint8_t* data, uint32_t bps,
                 uint8_t* out) {
    const uint64_t ring = marks.codes.size();
    if (first < marks.from || first > marks.to) marks.from = marks.to = first;
    for (uint32_t i = 0; i < n; ++i) {
        uint64_t sector = first + i;
        if (sector < marks.to) {
            out[i] = marks.codes[size_t(sector % ring)];
            continue;
        }
        out[i] = SectorMark(data + size_t(i) * bps);
        marks.codes[size_t(sector % ring)] = out[i];
        marks.to = sector + 1;
        if (marks.to - marks.from > ring) marks.from = marks.to - ring;
    }
}
} // namespace

uint8_t CCompoundScanner::WalkDirectory(uint64_t sectorNumber) {
    constexpr uint8_t kAll = 7;
    uint8_t found = 0;
    CSectorReader* r = Reader();
    uint32_t bps = r->SectorSize();
    if (bps < kDirectoryEntrySize) return 0;
    uint64_t maxSectors = kMaxDirectoryDistance / bps;
    uint64_t endSector = r->EndSector();
    CSectorReader::SectorMarks& marks = r->CompoundSectorMarks();
    // Room for one whole walk, so that the next hit's walk finds what this one worked out.
    if (marks.codes.size() < maxSectors + kReadSectors) {
        marks.codes.assign(size_t(maxSectors + kReadSectors), 0);
        marks.from = marks.to = 0;
    }
    uint8_t mark[kReadSectors];
    for (uint64_t walked = 0; walked < maxSectors;) {
        uint64_t current = sectorNumber + walked;
        if (current >= endSector) return found;
        uint32_t n = uint32_t(std::min<uint64_t>(kReadSectors, endSector - current));
        // Sectors an earlier walk has looked at need no reading; the others come usually straight
        // from the loop's read-ahead (they are scanned next anyway).
        std::span<const uint8_t> data;
        if (current >= marks.from && current + n <= marks.to) {
            for (uint32_t i = 0; i < n; ++i) mark[i] = marks.codes[size_t((current + i) % marks.codes.size())];
        } else {
            data = r->ReadView(current, n, m_buffer);
            if (data.empty()) {
                r->CountScannerFailure();
                return found;
            }
            MarkSectors(marks, current, n, data.data(), bps, mark);
        }
        for (uint32_t i = 0; i < n && walked + i < maxSectors; ++i) {
            if (mark[i] == 0) continue;
            if (walked + i > 0 && (mark[i] & kMarkHeader)) return found;
            found |= uint8_t(mark[i] & kAll);
            if (mark[i] & kMarkRoot) {
                // Fewer than 4 sectors left in this read: taken as success without looking.
                if (n - i < kRootLookahead) return kAll;
                const uint8_t* s;
                if (!data.empty()) {
                    s = data.data() + size_t(i) * bps;
                } else {
                    std::span<const uint8_t> near = r->ReadView(current + i, kRootLookahead, m_buffer);
                    if (near.empty()) {
                        r->CountScannerFailure();
                        return found;
                    }
                    s = near.data();
                }
                const uint8_t* end = s + size_t(kRootLookahead) * bps;
                for (const uint8_t* e = s + kDirectoryEntrySize; e + kDirectoryEntrySize <= end; e += kDirectoryEntrySize)
                    for (int k = 0; k < 3; ++k)
                        if (EntryNameIs(e, kStreams[k])) found |= uint8_t(1 << k);
                // No success from this root entry for a stream not named near it; the walk goes
                // on (a stream can hold the text "Root Entry").
            }
            if (found == kAll) return found;
        }
        walked += n;
    }
    return found;
}

uint64_t CCompoundScanner::FindFileSize(uint64_t sectorNumber, std::span<const uint8_t> sector) {
    if (!Reader() || Reader()->SectorSize() == 0) return 0;
    uint64_t size = SizeFromAllocationTable(sector);
    if (size == 0 || !DirectoryNamesStream(sectorNumber)) return 0;
    return size;
}

} // namespace kestrin
