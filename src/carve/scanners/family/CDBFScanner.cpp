#include "carve/scanners/family/CDBFScanner.h"

#include "util/Bytes.h"

namespace kestrin {

uint64_t CDBFScanner::Walk(std::span<const uint8_t> sector) {
    if (!Fits(sector, 0, 32)) return 0;
    const uint8_t* p = sector.data();
    switch (p[0]) {
    case 0x02: case 0x03: case 0x30: case 0x31: case 0x43:
    case 0x63: case 0x83: case 0x8B: case 0xCB: case 0xF5:
        break;
    default:
        return 0;
    }
    if (p[2] < 1 || p[2] > 12 || p[3] < 1 || p[3] > 31) return 0;
    uint64_t records = Le32(p + 4);
    uint32_t headerLength = Le16(p + 8), recordLength = Le16(p + 10);
    // The header is 32 bytes, 32 per field and a terminator.
    if (headerLength < 33 || recordLength == 0 || (headerLength - 33) % 32 > 1) return 0;
    uint64_t size = headerLength + records * recordLength;
    if (size > kMaxSize) return 0;
    auto end = At(size, 1);
    if (!end.empty() && end[0] == 0x1A) ++size;
    return size;
}

} // namespace kestrin
