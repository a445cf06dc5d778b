#include "carve/scanners/family/CPSTScanner.h"

#include "util/Bytes.h"

namespace kestrin {

namespace {
bool IsWide(uint8_t version) { return version == 21 || version == 23; }
} // namespace

int CPSTScanner::Verify(uint64_t, std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 8, "SM", 2)) return 0;
    auto version = ReadU8(sector, 10);
    if (!version) return 0;
    uint8_t v = *version;
    return v == 14 || v == 15 || IsWide(v) ? 1 : 0;
}

uint64_t CPSTScanner::FindFileSize(uint64_t, std::span<const uint8_t> sector) {
    auto version = ReadU8(sector, 10);
    if (!version) return 0;
    if (IsWide(*version)) {
        auto size = ReadLe64(sector, 184);
        return size ? *size : 0;
    }
    auto size = ReadLe32(sector, 168);
    return size ? *size : 0;
}

} // namespace kestrin
