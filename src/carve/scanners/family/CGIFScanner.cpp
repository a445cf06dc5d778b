#include "carve/scanners/family/CGIFScanner.h"

#include "util/Bytes.h"

namespace kestrin {

bool CGIFScanner::SkipSubBlocks(uint64_t& pos) {
    while (pos < kMaxSize) {
        // Sub-block lengths are read a window at a time.
        auto block = Upto(pos, kMaxSpan);
        if (block.empty()) return false;
        size_t i = 0;
        while (i < block.size()) {
            uint8_t length = block[i];
            if (length == 0) {
                pos += i + 1;
                return true;
            }
            i += 1 + size_t(length);
        }
        pos += i;
    }
    return false;
}

uint64_t CGIFScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "GIF87a", 6) && !MatchAt(sector, 0, "GIF89a", 6)) return 0;
    if (!Fits(sector, 0, 13)) return 0;
    uint8_t flags = sector[10];
    uint64_t pos = 13;
    if (flags & 0x80) pos += 3u << ((flags & 7) + 1);
    while (pos < kMaxSize) {
        auto b = At(pos, 1);
        if (b.empty()) return 0;
        switch (b[0]) {
        case 0x3B:
            return pos + 1;
        case 0x21: // extension: label, then sub-blocks
            pos += 2;
            if (!SkipSubBlocks(pos)) return 0;
            break;
        case 0x2C: { // image descriptor, local colour table, code size, sub-blocks
            auto d = At(pos, 10);
            if (d.empty()) return 0;
            pos += 10;
            if (d[9] & 0x80) pos += 3u << ((d[9] & 7) + 1);
            pos += 1;
            if (!SkipSubBlocks(pos)) return 0;
            break;
        }
        default:
            return 0;
        }
    }
    return 0;
}

} // namespace kestrin
