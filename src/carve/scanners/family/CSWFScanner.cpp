#include "carve/scanners/family/CSWFScanner.h"

#include "util/Bytes.h"

namespace kestrin {

int CSWFScanner::Verify(uint64_t, std::span<const uint8_t>) {
    return 1;
}

uint64_t CSWFScanner::FindFileSize(uint64_t, std::span<const uint8_t> sector) {
    if (MatchAt(sector, 0, "FWS", 3)) {
        auto length = ReadLe32(sector, 4);
        return length ? *length : 0;
    }
    return FixedSize();
}

} // namespace kestrin
