#include "carve/scanners/family/CAIFFScanner.h"

#include "util/Bytes.h"

namespace kestrin {

namespace {
// The FORM chunk that holds an AIFF file (big-endian): "FORM", the length of what follows, the
// form type, then the first chunk.
namespace aiff {
constexpr size_t kLength = 4;    // u32
constexpr size_t kFormType = 8;  // "AIFF" or "AIFC"
constexpr size_t kFirstChunk = 12;
constexpr size_t kIdSize = 4;
constexpr uint64_t kHeaderSize = 8; // "FORM" and the length
constexpr uint64_t kMinSize = 20;
} // namespace aiff
} // namespace

uint64_t CAIFFScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "FORM", 4) || !Fits(sector, 0, aiff::kFirstChunk + aiff::kIdSize)) return 0;
    if (!MatchAt(sector, aiff::kFormType, "AIFF", 4) && !MatchAt(sector, aiff::kFormType, "AIFC", 4)) return 0;
    // The first chunk's id is printable text.
    for (size_t i = aiff::kFirstChunk; i < aiff::kFirstChunk + aiff::kIdSize; ++i)
        if (sector[i] < 0x20 || sector[i] > 0x7E) return 0;
    uint64_t size = uint64_t(Be32(sector.data() + aiff::kLength)) + aiff::kHeaderSize;
    return size >= aiff::kMinSize ? size : 0;
}

} // namespace kestrin
