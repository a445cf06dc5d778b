#include "carve/scanners/family/CMrwScanner.h"

#include "util/Bytes.h"

namespace kestrin {

uint64_t CMrwScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "\0MRM", 4) || !Fits(sector, 0, 8)) return 0;
    uint64_t dataAt = 8 + uint64_t(Be32(sector.data() + 4));
    if (dataAt > kMaxSize) return 0;
    uint64_t pos = 8;
    for (int blocks = 0; blocks < kMaxBlocks && pos + 8 <= dataAt; ++blocks) {
        auto h = At(pos, 8);
        if (h.empty() || h[0] != 0) return 0;
        uint64_t length = Be32(h.data() + 4);
        if (MatchAt(h, 0, "\0PRD", 4)) {
            auto d = At(pos + 8, 19);
            if (d.empty()) return 0;
            uint64_t rows = Be16(d.data() + 8), columns = Be16(d.data() + 10);
            uint8_t storage = d[18];
            if (rows == 0 || columns == 0) return 0;
            uint64_t bytes = storage == 0x59 ? rows * columns * 12 / 8 : rows * columns * 2;
            if (bytes > kMaxSize - dataAt) return 0;
            return dataAt + bytes;
        }
        if (length > dataAt - pos - 8) return 0;
        pos += 8 + length;
    }
    return 0;
}

} // namespace kestrin
