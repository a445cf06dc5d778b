#include "carve/scanners/family/CAIFFScanner.h"

#include "util/Bytes.h"

namespace kestrin {

uint64_t CAIFFScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "FORM", 4) || !Fits(sector, 0, 16)) return 0;
    if (!MatchAt(sector, 8, "AIFF", 4) && !MatchAt(sector, 8, "AIFC", 4)) return 0;
    // The first chunk's id is printable text.
    for (int i = 12; i < 16; ++i)
        if (sector[i] < 0x20 || sector[i] > 0x7E) return 0;
    uint64_t size = uint64_t(Be32(sector.data() + 4)) + 8;
    return size >= 20 ? size : 0;
}

} // namespace kestrin
