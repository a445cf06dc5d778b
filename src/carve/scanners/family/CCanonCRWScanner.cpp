#include "carve/scanners/family/CCanonCRWScanner.h"

#include "util/Bytes.h"

namespace kestrin {

// Two records select this class: the whole header at 0, and "HEAPCCDR" alone at 6. The file
// always starts with the byte-order mark, whichever record found it.
bool CCanonCRWScanner::IsHeader(std::span<const uint8_t> sector) {
    return CompareHeader(sector) && MatchAt(sector, 0, "II", 2) && MatchAt(sector, 6, "HEAPCCDR", 8);
}

std::optional<std::pair<uint32_t, uint8_t>> CCanonCRWScanner::HeaderKey() const {
    return CScanner::HeaderKey();
}

uint64_t CCanonCRWScanner::Walk(std::span<const uint8_t> sector) {
    if (!Fits(sector, 0, 26)) return 0;
    uint64_t heap = Le32(sector.data() + 2);
    if (heap < 14 || heap >= sector.size()) return 0;
    // Candidate table starts: every even offset past the heap start.
    uint64_t limit = kMaxSize < Available() ? kMaxSize : Available();
    for (uint64_t table = heap + 2; table + 6 <= limit; table += 2) {
        auto block = Upto(table, kMaxSpan);
        if (block.size() < 6) break;
        for (size_t i = 0; i + 6 <= block.size(); i += 2) {
            uint64_t at = table + i;
            uint32_t count = Le16(block.data() + i);
            if (count == 0 || count > kMaxEntries) continue;
            uint64_t tableBytes = 2 + uint64_t(count) * 10;
            auto t = At(at, uint32_t(tableBytes + 4));
            if (t.empty() || Le32(t.data() + tableBytes) != at - heap) continue;
            uint64_t inside = at - heap;
            bool fits = true;
            uint64_t jpegAt = 0, jpegLength = 0;
            for (uint32_t e = 0; e < count && fits; ++e) {
                const uint8_t* p = t.data() + 2 + e * 10;
                uint16_t tag = Le16(p);
                uint32_t length = Le32(p + 2), offset = Le32(p + 6);
                // Entries stored in the table itself (data location bits 0x4000) carry their data.
                if ((tag & 0xC000) == 0x4000) continue;
                if ((tag & 0xC000) != 0 || offset > inside || length > inside - offset) fits = false;
                if ((tag & 0x3FFF) == 0x2007) {
                    jpegAt = heap + offset;
                    jpegLength = length;
                }
            }
            if (!fits) continue;
            if (jpegLength) SetEmbedded(jpegAt, jpegLength);
            return at + tableBytes + 4;
        }
        table += block.size() - 6 - (block.size() - 6) % 2;
    }
    return 0;
}

} // namespace kestrin
