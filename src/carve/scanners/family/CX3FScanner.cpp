#include "carve/scanners/family/CX3FScanner.h"

#include <cstring>

#include "util/Bytes.h"

namespace kestrin {

namespace {
constexpr uint32_t kImageHeader = 28; // "SECi", version, type, format, columns, rows, row size
constexpr uint32_t kJpegFormat = 18;
} // namespace

uint64_t CX3FScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "FOVb", 4)) return 0;
    uint64_t from = 4;
    for (int tries = 0; tries < 100000; ++tries) {
        uint64_t at = Find(from, kMaxSize - from, "SECd", 4);
        if (at == UINT64_MAX) return 0;
        from = at + 1;
        auto h = At(at, 12);
        if (h.empty()) return 0;
        uint32_t count = Le32(h.data() + 8);
        if (count == 0 || count > kMaxEntries) continue;
        uint64_t end = at + 12 + uint64_t(count) * 12;
        auto entries = At(at + 12, count * 12 + 4);
        if (entries.empty() || Le32(entries.data() + count * 12) != at) continue;
        bool fits = true;
        uint64_t jpegAt = 0, jpegLength = 0;
        for (uint32_t e = 0; e < count && fits; ++e) {
            const uint8_t* p = entries.data() + e * 12;
            uint64_t offset = Le32(p), length = Le32(p + 4);
            if (offset > at || length > at - offset) {
                fits = false;
                break;
            }
            if ((std::memcmp(p + 8, "IMAG", 4) == 0 || std::memcmp(p + 8, "IMA2", 4) == 0) &&
                length > kImageHeader && length - kImageHeader > jpegLength) {
                auto s = At(offset, kImageHeader + 2);
                if (!s.empty() && MatchAt(s, 0, "SECi", 4) && Le32(s.data() + 12) == kJpegFormat &&
                    s[kImageHeader] == 0xFF && s[kImageHeader + 1] == 0xD8) {
                    jpegAt = offset + kImageHeader;
                    jpegLength = length - kImageHeader;
                }
            }
        }
        if (!fits) continue;
        if (jpegLength) SetEmbedded(jpegAt, jpegLength);
        return end + 4;
    }
    return 0;
}

} // namespace kestrin
