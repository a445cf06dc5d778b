#include "carve/scanners/family/CMpegScanner.h"

#include "util/Bytes.h"

namespace kestrin {

uint64_t CMpegScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "\x00\x00\x01\xBA", 4)) return 0;
    uint64_t pos = 0;
    uint32_t packs = 0, units = 0;
    for (; units < kMaxUnits && pos < kMaxSize; ++units) {
        auto head = Upto(pos, 14);
        if (head.size() < 4 || head[0] != 0 || head[1] != 0 || head[2] != 1) break;
        uint8_t code = head[3];
        if (code == 0xB9) return packs ? pos + 4 : 0; // program end code
        if (head.size() < 14) break;
        if (code == 0xBA) {
            uint64_t length;
            if ((head[4] & 0xC0) == 0x40) length = 14 + (head[13] & 7); // MPEG-2 pack header
            else if ((head[4] & 0xF0) == 0x20) length = 12;             // MPEG-1 pack header
            else break;
            pos += length;
            ++packs;
            continue;
        }
        if (code < 0xBB) break; // not a system header or stream packet
        pos += 6 + uint64_t(Be16(head.data() + 4));
    }
    // One pack header and what follows it at the least.
    if (packs == 0 || units < 2 || pos > Available()) return 0;
    return pos;
}

} // namespace kestrin
