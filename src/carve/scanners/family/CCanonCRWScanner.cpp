#include "carve/scanners/family/CCanonCRWScanner.h"

#include "util/Bytes.h"

namespace kestrin {

namespace {
// Canon CIFF (little-endian): the byte-order mark, the heap's start, "HEAPCCDR"; the root table
// ends the file: an entry count, ten-byte entries (tag, length, offset in the heap) and the
// table's own offset in the heap as its last four bytes.
namespace ciff {
constexpr size_t kSignature = 6; // "HEAPCCDR"
using HeapStart = LeField<uint32_t, 2>;
constexpr size_t kMinSector = 26;
constexpr uint64_t kMinHeapStart = 14;
using Count = LeField<uint16_t, 0>;
constexpr uint32_t kCountSize = 2;
constexpr uint32_t kOffsetSize = 4; // the table's offset after the entries
constexpr uint32_t kMinTable = kCountSize + kOffsetSize;
namespace entry {
using Tag = LeField<uint16_t, 0>;
using Length = LeField<uint32_t, 2>;
using Offset = LeField<uint32_t, 6>;
constexpr uint32_t kSize = 10;
} // namespace entry
// The top bits of a tag say where its data is: 0 in the heap, 0x4000 in the entry itself.
constexpr uint16_t kLocationBits = 0xC000;
constexpr uint16_t kInEntry = 0x4000;
constexpr uint16_t kTagBits = 0x3FFF;
constexpr uint16_t kJpegImage = 0x2007;
} // namespace ciff
} // namespace

// Two records select this class: the whole header at 0, and "HEAPCCDR" alone at 6. The file
// always starts with the byte-order mark, whichever record found it.
bool CCanonCRWScanner::IsHeader(std::span<const uint8_t> sector) {
    return CompareHeader(sector) && MatchAt(sector, 0, "II", 2) && MatchAt(sector, ciff::kSignature, "HEAPCCDR", 8);
}

std::optional<std::pair<uint32_t, uint8_t>> CCanonCRWScanner::HeaderKey() const {
    return CScanner::HeaderKey();
}

uint64_t CCanonCRWScanner::Walk(std::span<const uint8_t> sector) {
    if (!Fits(sector, 0, ciff::kMinSector)) return 0;
    uint64_t heap = ciff::HeapStart::At(sector.data());
    if (heap < ciff::kMinHeapStart || heap >= sector.size()) return 0;
    // Candidate table starts: every even offset past the heap start.
    uint64_t limit = kMaxSize < Available() ? kMaxSize : Available();
    for (uint64_t table = heap + 2; table + ciff::kMinTable <= limit; table += 2) {
        auto block = Upto(table, kMaxSpan);
        if (block.size() < ciff::kMinTable) break;
        for (size_t i = 0; i + ciff::kMinTable <= block.size(); i += 2) {
            uint64_t at = table + i;
            uint32_t count = ciff::Count::At(block.data() + i);
            if (count == 0 || count > kMaxEntries) continue;
            uint64_t tableBytes = ciff::kCountSize + uint64_t(count) * ciff::entry::kSize;
            auto t = At(at, uint32_t(tableBytes + ciff::kOffsetSize));
            if (t.empty() || Le32(t.data() + tableBytes) != at - heap) continue;
            uint64_t inside = at - heap;
            bool fits = true;
            uint64_t jpegAt = 0, jpegLength = 0;
            for (uint32_t e = 0; e < count && fits; ++e) {
                const uint8_t* p = t.data() + ciff::kCountSize + e * ciff::entry::kSize;
                uint16_t tag = ciff::entry::Tag::At(p);
                uint32_t length = ciff::entry::Length::At(p), offset = ciff::entry::Offset::At(p);
                // Entries stored in the table itself carry their data.
                if ((tag & ciff::kLocationBits) == ciff::kInEntry) continue;
                if ((tag & ciff::kLocationBits) != 0 || offset > inside || length > inside - offset) fits = false;
                if ((tag & ciff::kTagBits) == ciff::kJpegImage) {
                    jpegAt = heap + offset;
                    jpegLength = length;
                }
            }
            if (!fits) continue;
            if (jpegLength) SetEmbedded(jpegAt, jpegLength);
            return at + tableBytes + ciff::kOffsetSize;
        }
        table += block.size() - ciff::kMinTable - (block.size() - ciff::kMinTable) % 2;
    }
    return 0;
}

} // namespace kestrin
