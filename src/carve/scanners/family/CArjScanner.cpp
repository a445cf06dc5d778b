#include "carve/scanners/family/CArjScanner.h"

#include <array>

#include "util/Bytes.h"

namespace kestrin {

namespace {
// ARJ headers (little-endian): the marker 0x60 0xEA, the basic header's size (0 ends the
// archive), the basic header, its CRC-32, then extended headers (a size, the data, a CRC-32)
// until a size of 0.
namespace arj {
using BasicSize = LeField<uint16_t, 2>;
constexpr uint32_t kHead = 4; // marker and basic header size
constexpr uint32_t kCrcSize = 4;
constexpr uint16_t kMinBasic = 16;
// In the basic header.
constexpr size_t kFileType = 6;
using CompressedSize = LeField<uint32_t, 12>;
constexpr uint8_t kMainHeader = 2; // the file type of the archive's main header
constexpr uint32_t kExtendedSize = 2;
constexpr int kMaxExtended = 64;
} // namespace arj

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
    auto h = At(pos, arj::kHead);
    if (h.empty() || h[0] != 0x60 || h[1] != 0xEA) return std::nullopt;
    uint16_t basic = arj::BasicSize::At(h.data());
    if (basic == 0) {
        pos += arj::kHead;
        return 0;
    }
    if (basic < arj::kMinBasic || basic > kMaxBasicHeader) return std::nullopt;
    auto b = At(pos + arj::kHead, basic + arj::kCrcSize);
    if (b.empty() || Crc32(b.first(basic)) != Le32(b.data() + basic)) return std::nullopt;
    fileType = b[arj::kFileType];
    compressed = arj::CompressedSize::At(b.data());
    pos += arj::kHead + basic + arj::kCrcSize;
    // Extended headers, each with its own CRC, until a size of 0.
    for (int i = 0; i < arj::kMaxExtended; ++i) {
        auto e = At(pos, arj::kExtendedSize);
        if (e.empty()) return std::nullopt;
        uint16_t length = Le16(e.data());
        pos += arj::kExtendedSize;
        if (length == 0) return basic;
        pos += uint64_t(length) + arj::kCrcSize;
    }
    return std::nullopt;
}

uint64_t CArjScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "\x60\xEA", 2)) return 0;
    uint64_t pos = 0, compressed = 0;
    uint8_t fileType = 0;
    auto main = ReadHeader(pos, compressed, fileType);
    if (!main || *main == 0 || fileType != arj::kMainHeader) return 0;
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
