#include "carve/scanners/family/CRmScanner.h"

#include <cstring>

#include "util/Bytes.h"

namespace kestrin {

namespace {
bool IsChunkId(const uint8_t* p) {
    static const char* const kIds[] = {".RMF", "PROP", "MDPR", "CONT", "DATA", "INDX", "RMMD", "RJMD", "RMJE", "TAG "};
    for (const char* k : kIds)
        if (std::memcmp(p, k, 4) == 0) return true;
    return false;
}
} // namespace

// End of the packets of the data chunk at `at` (`length` bytes as claimed): each packet is a
// version (0 or 1), its own length, stream number and time stamp; the walk stops at the chunk's
// end, after the packet count of the chunk header, or at the first packet that cannot be one.
uint64_t CRmScanner::PacketsEnd(uint64_t at, uint64_t length) {
    auto h = At(at, 18);
    if (h.empty()) return at;
    uint32_t count = Be32(h.data() + 10);
    uint64_t end = at + length, pos = at + 18;
    for (uint32_t i = 0; i < count && pos < end; ++i) {
        auto p = At(pos, 4);
        if (p.empty()) break;
        uint16_t version = Be16(p.data()), size = Be16(p.data() + 2);
        if (version > 1 || size < 12 || size > end - pos) break;
        pos += size;
    }
    return pos;
}

uint64_t CRmScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, ".RMF", 4)) return 0;
    uint64_t pos = 0;
    bool properties = false;
    for (int chunks = 0; chunks < kMaxChunks; ++chunks) {
        auto head = At(pos, 10);
        if (head.empty() || !IsChunkId(head.data())) break;
        uint64_t length = Be32(head.data() + 4);
        if (length < 8 || length > kMaxSize - pos) break;
        if (std::memcmp(head.data(), "PROP", 4) == 0) properties = true;
        if (std::memcmp(head.data(), "DATA", 4) == 0) {
            uint64_t packets = PacketsEnd(pos, length);
            if (packets != pos + length) {
                // The data chunk claims more than its packets fill: the file ends after the
                // packets and the end header of eight zero bytes some writers put there.
                auto tail = At(packets, 8);
                if (!tail.empty() && Be64(tail.data()) == 0) packets += 8;
                return properties ? packets : 0;
            }
        }
        pos += length;
    }
    return properties ? pos : 0;
}

} // namespace kestrin
