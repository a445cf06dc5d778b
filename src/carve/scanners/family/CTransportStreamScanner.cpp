#include "carve/scanners/family/CTransportStreamScanner.h"

#include <algorithm>

namespace kestrin {

uint64_t CTransportStreamScanner::Walk(std::span<const uint8_t> sector) {
    // The packets inside the first sector must all carry the sync byte.
    for (size_t at = m_syncAt; at < sector.size(); at += m_packet)
        if (sector[at] != 0x47) return 0;
    uint64_t limit = std::min(Available(), kMaxSize);
    uint64_t pos = 0;
    // Whole windows at a time: the packets of one window are checked in memory.
    while (pos + m_packet <= limit) {
        auto block = Upto(pos, kMaxSpan - kMaxSpan % m_packet);
        uint64_t whole = block.size() / m_packet;
        if (whole == 0) break;
        uint64_t i = 0;
        while (i < whole && block[i * m_packet + m_syncAt] == 0x47) ++i;
        pos += i * m_packet;
        if (i < whole) break;
    }
    return pos / m_packet >= kMinPackets ? pos : 0;
}

} // namespace kestrin
