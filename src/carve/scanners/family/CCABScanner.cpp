#include "carve/scanners/family/CCABScanner.h"

#include "util/Bytes.h"

namespace kestrin {

int CCABScanner::Verify(uint64_t, std::span<const uint8_t>) {
    return 1;
}

uint64_t CCABScanner::FindFileSize(uint64_t, std::span<const uint8_t> sector) {
    auto size = ReadLe32(sector, 8);
    if (!size) return 0;
    return *size > kLimit ? kCapped : *size;
}

} // namespace kestrin
