#include "carve/scanners/family/C7zScanner.h"

#include "util/Bytes.h"

namespace kestrin {

int C7zScanner::Verify(uint64_t, std::span<const uint8_t>) {
    return 1;
}

uint64_t C7zScanner::FindFileSize(uint64_t, std::span<const uint8_t> sector) {
    auto offset = ReadLe32(sector, 12);
    auto length = ReadLe32(sector, 20);
    if (!offset || !length) return 0;
    uint64_t size = uint64_t(*offset) + *length + 32;
    return size > kLimit ? kCapped : size;
}

} // namespace kestrin
