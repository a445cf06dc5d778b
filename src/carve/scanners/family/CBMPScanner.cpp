#include "carve/scanners/family/CBMPScanner.h"

#include "util/Bytes.h"

namespace kestrin {

int CBMPScanner::Verify(uint64_t, std::span<const uint8_t> sector) {
    auto reserved = ReadLe32(sector, 6);
    auto infoSize = ReadLe32(sector, 14);
    return reserved && *reserved == 0 && infoSize && *infoSize == 40 ? 1 : 0;
}

uint64_t CBMPScanner::FindFileSize(uint64_t, std::span<const uint8_t> sector) {
    auto size = ReadLe32(sector, 2);
    if (!size) return 0;
    return *size > kMaxSize ? kMaxSize : *size;
}

} // namespace kestrin
