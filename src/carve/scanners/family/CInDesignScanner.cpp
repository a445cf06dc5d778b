#include "carve/scanners/family/CInDesignScanner.h"

#include <cstring>

#include "util/Bytes.h"

namespace kestrin {

namespace {
constexpr uint8_t kStreamMarker[16] = {0xDE, 0x39, 0x39, 0x79, 0x51, 0x88, 0x4B, 0x6C,
                                       0x8E, 0x63, 0xEE, 0xF8, 0xEE, 0xE0, 0xDD, 0x38};

// The master page (the file's first page): the kind, the byte order of the numbers, the page
// count. A contiguous object stream: the marker, its length, the data, a 32-byte trailer.
namespace indd {
constexpr size_t kKind = 16; // eight letters
constexpr size_t kKindSize = 8;
constexpr size_t kByteOrder = 24;
constexpr uint8_t kLittleEndian = 1;
constexpr uint8_t kBigEndian = 2;
constexpr size_t kPageCount = 280; // u32 in the page's byte order
namespace stream {
constexpr size_t kLength = 20; // u32 in the page's byte order
constexpr uint32_t kHeaderSize = 32;
constexpr uint32_t kTrailerSize = 32;
} // namespace stream
} // namespace indd
} // namespace

uint64_t CInDesignScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, indd::kKind, m_kind, indd::kKindSize) || !Fits(sector, 0, indd::kPageCount + 4)) return 0;
    uint8_t order = sector[indd::kByteOrder];
    if (order != indd::kLittleEndian && order != indd::kBigEndian) return 0;
    const uint8_t* count = sector.data() + indd::kPageCount;
    uint64_t pages = order == indd::kLittleEndian ? Le32(count) : Be32(count);
    if (pages == 0 || pages > kMaxSize / kPageSize) return 0;
    uint64_t pos = pages * kPageSize;
    for (int streams = 0; streams < kMaxStreams; ++streams) {
        auto h = At(pos, indd::stream::kHeaderSize);
        if (h.empty() || std::memcmp(h.data(), kStreamMarker, sizeof kStreamMarker) != 0) break;
        const uint8_t* field = h.data() + indd::stream::kLength;
        uint64_t length = order == indd::kLittleEndian ? Le32(field) : Be32(field);
        constexpr uint64_t kFraming = indd::stream::kHeaderSize + indd::stream::kTrailerSize;
        if (pos > kMaxSize - kFraming || length > kMaxSize - kFraming - pos) break;
        pos += indd::stream::kHeaderSize + length + indd::stream::kTrailerSize;
    }
    return pos;
}

} // namespace kestrin
