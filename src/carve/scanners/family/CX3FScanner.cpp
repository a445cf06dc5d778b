#include "carve/scanners/family/CX3FScanner.h"

#include <cstring>

#include "util/Bytes.h"

namespace kestrin {

namespace {
// Sigma X3F (little-endian): the directory "SECd" at the end of the file (its version, entry
// count, then twelve-byte entries: offset, length, type) followed by its own offset.
namespace x3f {
using Count = LeField<uint32_t, 8>;
constexpr uint32_t kDirectoryHead = 12;
constexpr uint32_t kOffsetSize = 4;
namespace entry {
using Offset = LeField<uint32_t, 0>;
using Length = LeField<uint32_t, 4>;
constexpr size_t kType = 8;
constexpr uint32_t kSize = 12;
} // namespace entry
// An image section: "SECi", version, type, format, columns, rows, row size, then the data.
constexpr uint32_t kImageHeader = 28;
using ImageFormat = LeField<uint32_t, 12>;
constexpr uint32_t kJpegFormat = 18;
constexpr int kMaxDirectoryTries = 100000;
} // namespace x3f
} // namespace

uint64_t CX3FScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "FOVb", 4)) return 0;
    uint64_t from = 4;
    for (int tries = 0; tries < x3f::kMaxDirectoryTries; ++tries) {
        uint64_t at = Find(from, kMaxSize - from, "SECd", 4);
        if (at == UINT64_MAX) return 0;
        from = at + 1;
        auto h = At(at, x3f::kDirectoryHead);
        if (h.empty()) return 0;
        uint32_t count = x3f::Count::At(h.data());
        if (count == 0 || count > kMaxEntries) continue;
        const uint32_t entriesSize = count * x3f::entry::kSize;
        uint64_t end = at + x3f::kDirectoryHead + uint64_t(entriesSize);
        auto entries = At(at + x3f::kDirectoryHead, entriesSize + x3f::kOffsetSize);
        if (entries.empty() || Le32(entries.data() + entriesSize) != at) continue;
        bool fits = true;
        uint64_t jpegAt = 0, jpegLength = 0;
        for (uint32_t e = 0; e < count && fits; ++e) {
            const uint8_t* p = entries.data() + e * x3f::entry::kSize;
            uint64_t offset = x3f::entry::Offset::At(p), length = x3f::entry::Length::At(p);
            if (offset > at || length > at - offset) {
                fits = false;
                break;
            }
            const uint8_t* type = p + x3f::entry::kType;
            if ((std::memcmp(type, "IMAG", 4) == 0 || std::memcmp(type, "IMA2", 4) == 0) &&
                length > x3f::kImageHeader && length - x3f::kImageHeader > jpegLength) {
                auto s = At(offset, x3f::kImageHeader + 2);
                if (!s.empty() && MatchAt(s, 0, "SECi", 4) && x3f::ImageFormat::At(s.data()) == x3f::kJpegFormat &&
                    s[x3f::kImageHeader] == 0xFF && s[x3f::kImageHeader + 1] == 0xD8) {
                    jpegAt = offset + x3f::kImageHeader;
                    jpegLength = length - x3f::kImageHeader;
                }
            }
        }
        if (!fits) continue;
        if (jpegLength) SetEmbedded(jpegAt, jpegLength);
        return end + x3f::kOffsetSize;
    }
    return 0;
}

} // namespace kestrin
