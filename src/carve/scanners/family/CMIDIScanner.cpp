#include "carve/scanners/family/CMIDIScanner.h"

#include <cctype>

#include "util/Bytes.h"

namespace kestrin {

uint64_t CMIDIScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "MThd", 4) || !Fits(sector, 0, 14)) return 0;
    uint32_t headerLength = Be32(sector.data() + 4);
    uint16_t format = Be16(sector.data() + 8);
    uint16_t tracks = Be16(sector.data() + 10);
    if (headerLength < 6 || headerLength > 256 || format > 2 || tracks == 0) return 0;
    uint64_t pos = 8 + uint64_t(headerLength);
    for (uint32_t i = 0; i < tracks; ++i) {
        auto head = At(pos, 8);
        if (head.empty()) return 0;
        for (int k = 0; k < 4; ++k)
            if (!std::isalnum(head[k])) return 0;
        uint64_t length = Be32(head.data() + 4);
        if (pos > kMaxSize - 8 || length > kMaxSize - 8 - pos) return 0;
        pos += 8 + length;
    }
    return pos;
}

} // namespace kestrin
