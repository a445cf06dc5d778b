#include "carve/scanners/family/CMIDIScanner.h"

#include <cctype>

#include "util/Bytes.h"

namespace kestrin {

namespace {
// Standard MIDI file (big-endian): the header chunk "MThd" with its length, format and track
// count, then one chunk per track: a four-character id and its length.
namespace midi {
constexpr size_t kHeaderLength = 4; // u32
constexpr size_t kFormat = 8;       // u16
constexpr size_t kTracks = 10;      // u16
constexpr size_t kHeaderFields = 14;
constexpr uint32_t kMinHeaderLength = 6, kMaxHeaderLength = 256;
constexpr uint16_t kMaxFormat = 2;
namespace chunk {
constexpr size_t kLength = 4; // u32
constexpr uint32_t kHeaderSize = 8;
} // namespace chunk
} // namespace midi
} // namespace

uint64_t CMIDIScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "MThd", 4) || !Fits(sector, 0, midi::kHeaderFields)) return 0;
    uint32_t headerLength = Be32(sector.data() + midi::kHeaderLength);
    uint16_t format = Be16(sector.data() + midi::kFormat);
    uint16_t tracks = Be16(sector.data() + midi::kTracks);
    if (headerLength < midi::kMinHeaderLength || headerLength > midi::kMaxHeaderLength || format > midi::kMaxFormat ||
        tracks == 0)
        return 0;
    constexpr uint64_t kChunkHeader = midi::chunk::kHeaderSize;
    uint64_t pos = kChunkHeader + uint64_t(headerLength);
    for (uint32_t i = 0; i < tracks; ++i) {
        auto head = At(pos, midi::chunk::kHeaderSize);
        if (head.empty()) return 0;
        for (size_t k = 0; k < midi::chunk::kLength; ++k)
            if (!std::isalnum(head[k])) return 0;
        uint64_t length = Be32(head.data() + midi::chunk::kLength);
        if (pos > kMaxSize - kChunkHeader || length > kMaxSize - kChunkHeader - pos) return 0;
        pos += kChunkHeader + length;
    }
    return pos;
}

} // namespace kestrin
