#include "carve/scanners/family/CInDesignScanner.h"

#include <cstring>

#include "util/Bytes.h"

namespace kestrin {

namespace {
constexpr uint8_t kStreamMarker[16] = {0xDE, 0x39, 0x39, 0x79, 0x51, 0x88, 0x4B, 0x6C,
                                       0x8E, 0x63, 0xEE, 0xF8, 0xEE, 0xE0, 0xDD, 0x38};
} // namespace

uint64_t CInDesignScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 16, m_kind, 8) || !Fits(sector, 0, 284)) return 0;
    uint8_t order = sector[24];
    if (order != 1 && order != 2) return 0;
    uint64_t pages = order == 1 ? Le32(sector.data() + 280) : Be32(sector.data() + 280);
    if (pages == 0 || pages > kMaxSize / kPageSize) return 0;
    uint64_t pos = pages * kPageSize;
    for (int streams = 0; streams < kMaxStreams; ++streams) {
        auto h = At(pos, 32);
        if (h.empty() || std::memcmp(h.data(), kStreamMarker, 16) != 0) break;
        uint64_t length = order == 1 ? Le32(h.data() + 20) : Be32(h.data() + 20);
        if (pos > kMaxSize - 64 || length > kMaxSize - 64 - pos) break;
        pos += 32 + length + 32;
    }
    return pos;
}

} // namespace kestrin
