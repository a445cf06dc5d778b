#include "carve/scanners/family/CArjScanner.h"

#include <array>

#include "util/Bytes.h"

namespace kestrin {

namespace {
uint32_t Crc32(std::span<const uint8_t> data) {
    static const std::array<uint32_t, 256> table = [] {
        std::array<uint32_t, 256> t{};
        for (uint32_t i = 0; i < 256; ++i) {
            uint32_t c = i;
            for (int k = 0; k < 8; ++k) c = c & 1 ? 0xEDB88320 ^ (c >> 1) : c >> 1;
            t[i] = c;
        }
        return t;
    }();
    uint32_t crc = 0xFFFFFFFF;
    for (uint8_t b : data) crc = table[(crc ^ b) & 0xFF] ^ (crc >> 8);
    return ~crc;
}
} // namespace

std::optional<uint16_t> CArjScanner::ReadHeader(uint64_t& pos, uint64_t& compressed, uint8_t& fileType) {
    auto h = At(pos, 4);
    if (h.empty() || h[0] != 0x60 || h[1] != 0xEA) return std::nullopt;
    uint16_t basic = Le16(h.data() + 2);
    if (basic == 0) {
        pos += 4;
        return 0;
    }
    if (basic < 16 || basic > kMaxBasicHeader) return std::nullopt;
    auto b = At(pos + 4, basic + 4u);
    if (b.empty() || Crc32(b.first(basic)) != Le32(b.data() + basic)) return std::nullopt;
    fileType = b[6];
    compressed = Le32(b.data() + 12);
    pos += 4 + basic + 4;
    // Extended headers, each with its own CRC, until a size of 0.
    for (int i = 0; i < 64; ++i) {
        auto e = At(pos, 2);
        if (e.empty()) return std::nullopt;
        uint16_t length = Le16(e.data());
        pos += 2;
        if (length == 0) return basic;
        pos += uint64_t(length) + 4;
    }
    return std::nullopt;
}

uint64_t CArjScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "\x60\xEA", 2)) return 0;
    uint64_t pos = 0, compressed = 0;
    uint8_t fileType = 0;
    auto main = ReadHeader(pos, compressed, fileType);
    if (!main || *main == 0 || fileType != 2) return 0;
    for (uint32_t members = 0; members < kMaxMembers; ++members) {
        auto basic = ReadHeader(pos, compressed, fileType);
        if (!basic) return 0;
        if (*basic == 0) return pos;
        if (compressed > kMaxSize - pos) return 0;
        pos += compressed;
    }
    return 0;
}

} // namespace kestrin
