#include "carve/scanners/family/CRaScanner.h"

#include "util/Bytes.h"

namespace kestrin {

int CRaScanner::Verify(uint64_t, std::span<const uint8_t> sector) {
    auto marker = ReadBe32(sector, 8);
    return marker && *marker == 0x2E726134 ? 1 : 0;
}

uint64_t CRaScanner::FindFileSize(uint64_t, std::span<const uint8_t> sector) {
    auto length = ReadBe32(sector, 12);
    if (!length || *length == 0) return 0;
    uint64_t size = uint64_t(*length) + 40;
    return size > kLimit ? kCapped : size;
}

} // namespace kestrin
