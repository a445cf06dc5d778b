#include "carve/scanners/family/CPNGScanner.h"

#include <cctype>
#include <cstring>

#include "util/Bytes.h"

namespace kestrin {

namespace {
// PNG: the 8-byte signature, then chunks of a big-endian length, a 4-letter type, the data and
// a CRC. The first chunk is the image header.
namespace png {
constexpr char kSignature[8] = {'\x89', 'P', 'N', 'G', '\r', '\n', '\x1A', '\n'};
constexpr size_t kFirstChunkType = 12; // in the file: the signature, then the first chunk's length
namespace chunk {
constexpr size_t kLength = 0; // u32 big-endian: the data bytes
constexpr size_t kType = 4;   // four letters
constexpr uint32_t kHeaderSize = 8;
constexpr uint32_t kCrcSize = 4;
constexpr uint32_t kMaxLength = 0x7FFFFFFF;
} // namespace chunk
} // namespace png
} // namespace

uint64_t CPNGScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, png::kSignature, sizeof png::kSignature) ||
        !MatchAt(sector, png::kFirstChunkType, "IHDR", 4))
        return 0;
    uint64_t pos = sizeof png::kSignature;
    for (int chunks = 0; chunks < kMaxChunks; ++chunks) {
        auto h = At(pos, png::chunk::kHeaderSize);
        if (h.empty()) return 0;
        uint32_t length = Be32(h.data() + png::chunk::kLength);
        if (length > png::chunk::kMaxLength) return 0;
        for (size_t i = png::chunk::kType; i < png::chunk::kType + 4; ++i)
            if (!std::isalpha(h[i])) return 0;
        uint64_t next = pos + png::chunk::kHeaderSize + length + png::chunk::kCrcSize;
        if (next > kMaxSize) return 0;
        if (std::memcmp(h.data() + png::chunk::kType, "IEND", 4) == 0) return next;
        pos = next;
    }
    return 0;
}

} // namespace kestrin
