#include "carve/EmbeddedJpeg.h"

#include <algorithm>
#include <cstring>

#include "util/Bytes.h"

namespace kestrin {

namespace {

// A JPEG marker segment: FF, the marker byte, then (for most markers) a big-endian length that
// counts itself and the segment's data. A frame header's data: precision, height, width.
namespace segment {
constexpr size_t kMarker = 1;
constexpr size_t kLength = 2;
constexpr size_t kMarkerSize = 2;
constexpr uint16_t kMinLength = 2;
constexpr size_t kFrameHeight = 5;
constexpr size_t kFrameWidth = 7;
} // namespace segment

// Walks the marker segments of the JPEG stream at `at` (its FF D8) to the first frame header.
bool ReadFrame(Bytes b, size_t at, EmbeddedJpeg& out) {
    size_t p = at + segment::kMarkerSize; // past the start of image
    for (int seg = 0; seg < kMaxEmbeddedSegments; ++seg) {
        if (ReadU8(b, p).value_or(0) != 0xFF) return false;
        while (ReadU8(b, p + segment::kMarker).value_or(0) == 0xFF) ++p; // fill bytes
        auto marker = ReadU8(b, p + segment::kMarker);
        if (!marker) return false;
        uint8_t m = *marker;
        if (m == 0x01 || (m >= 0xD0 && m <= 0xD7)) { // no length follows
            p += segment::kMarkerSize;
            continue;
        }
        if (m == 0xD8 || m == 0xD9 || m == 0xDA || m == 0x00) return false; // no frame before the data
        auto len = ReadBe16(b, p + segment::kLength);
        if (!len || *len < segment::kMinLength) return false;
        if (m >= 0xC0 && m <= 0xCF && m != 0xC4 && m != 0xC8 && m != 0xCC) {
            // Baseline, extended sequential and progressive Huffman frames only.
            if (m != 0xC0 && m != 0xC1 && m != 0xC2) return false;
            auto h = ReadBe16(b, p + segment::kFrameHeight), w = ReadBe16(b, p + segment::kFrameWidth);
            if (!h || !w || !*h || !*w) return false;
            out.offset = at;
            out.height = *h;
            out.width = *w;
            return true;
        }
        p += segment::kMarkerSize + size_t(*len);
    }
    return false;
}

} // namespace

std::vector<EmbeddedJpeg> FindEmbeddedJpegs(std::span<const uint8_t> file) {
    std::vector<EmbeddedJpeg> found;
    size_t looked = 0;
    const uint8_t* base = file.data();
    for (size_t at = 0; at + 3 <= file.size() && looked < kMaxEmbeddedCandidates;) {
        const void* hit = std::memchr(base + at, 0xFF, file.size() - at);
        if (!hit) break;
        at = size_t(static_cast<const uint8_t*>(hit) - base);
        if (at + 3 <= file.size() && base[at + 1] == 0xD8 && base[at + 2] == 0xFF) {
            ++looked;
            EmbeddedJpeg j;
            if (ReadFrame(file, at, j)) found.push_back(j);
        }
        ++at;
    }
    std::stable_sort(found.begin(), found.end(), [](const EmbeddedJpeg& a, const EmbeddedJpeg& b) {
        return uint32_t(a.width) * a.height > uint32_t(b.width) * b.height;
    });
    return found;
}

} // namespace kestrin
