#include "carve/scanners/family/CPNGScanner.h"

#include <cctype>
#include <cstring>

#include "util/Bytes.h"

namespace kestrin {

uint64_t CPNGScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "\x89PNG\r\n\x1A\n", 8) || !MatchAt(sector, 12, "IHDR", 4)) return 0;
    uint64_t pos = 8;
    for (int chunks = 0; chunks < kMaxChunks; ++chunks) {
        auto h = At(pos, 8);
        if (h.empty()) return 0;
        uint32_t length = Be32(h.data());
        if (length > 0x7FFFFFFF) return 0;
        for (int i = 4; i < 8; ++i)
            if (!std::isalpha(h[i])) return 0;
        uint64_t next = pos + 12 + length;
        if (next > kMaxSize) return 0;
        if (std::memcmp(h.data() + 4, "IEND", 4) == 0) return next;
        pos = next;
    }
    return 0;
}

} // namespace kestrin
