#include "carve/scanners/family/CMP3Scanner.h"

#include "util/Bytes.h"

namespace kestrin {

namespace {
// Bit rates in kbit/s by [MPEG-1 or not][layer 1..3][index].
constexpr uint16_t kBitRates[2][3][16] = {
    {{0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448, 0},
     {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0},
     {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0}},
    {{0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256, 0},
     {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0},
     {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0}}};
constexpr uint32_t kSampleRates[3] = {44100, 48000, 32000};

// An ID3v2 tag before the frames: "ID3", the major version, revision, flags, then the tag size
// as four 7-bit bytes (not counting the 10-byte header, nor the footer when the flags say so).
namespace id3 {
constexpr size_t kMajorVersion = 3;
constexpr size_t kFlags = 5;
constexpr size_t kSize = 6;
constexpr uint64_t kHeaderSize = 10;
constexpr uint8_t kHasFooter = 0x10;
constexpr uint64_t kFooterSize = 10;
constexpr uint8_t kMinVersion = 2, kMaxVersion = 4;
} // namespace id3
// The ID3v1 tag after the frames: "TAG" and 125 more bytes.
constexpr uint64_t kId3v1Size = 128;

// The header fields that stay the same over one stream: version, layer, sample rate.
uint32_t StreamKey(uint32_t h) { return h & 0xFFFE0C00; }
} // namespace

uint32_t CMP3Scanner::FrameLength(uint32_t h) {
    if ((h & 0xFFE00000) != 0xFFE00000) return 0;
    uint32_t version = (h >> 19) & 3; // 0 MPEG-2.5, 1 reserved, 2 MPEG-2, 3 MPEG-1
    uint32_t layer = (h >> 17) & 3;   // 1 layer III, 2 layer II, 3 layer I
    uint32_t rateIndex = (h >> 12) & 15;
    uint32_t srIndex = (h >> 10) & 3;
    uint32_t padding = (h >> 9) & 1;
    if (version == 1 || layer == 0 || rateIndex == 0 || rateIndex == 15 || srIndex == 3 || (h & 3) == 2) return 0;
    bool mpeg1 = version == 3;
    uint32_t layerNumber = 4 - layer;
    uint32_t bitRate = kBitRates[mpeg1 ? 0 : 1][layerNumber - 1][rateIndex] * 1000;
    uint32_t sampleRate = kSampleRates[srIndex] >> (mpeg1 ? 0 : version == 2 ? 1 : 2);
    if (layerNumber == 1) return (12 * bitRate / sampleRate + padding) * 4;
    if (layerNumber == 3 && !mpeg1) return 72 * bitRate / sampleRate + padding;
    return 144 * bitRate / sampleRate + padding;
}

uint64_t CMP3Scanner::Walk(std::span<const uint8_t> sector) {
    uint64_t pos = 0;
    bool tagged = false;
    if (MatchAt(sector, 0, "ID3", 3)) {
        if (!Fits(sector, 0, id3::kHeaderSize) || sector[id3::kMajorVersion] < id3::kMinVersion ||
            sector[id3::kMajorVersion] > id3::kMaxVersion)
            return 0;
        uint32_t length = 0;
        for (size_t i = id3::kSize; i < id3::kHeaderSize; ++i) {
            if (sector[i] & 0x80) return 0;
            length = length << 7 | sector[i];
        }
        pos = id3::kHeaderSize + uint64_t(length) + (sector[id3::kFlags] & id3::kHasFooter ? id3::kFooterSize : 0);
        tagged = true;
    }
    uint32_t key = 0;
    int frames = 0;
    while (pos < kMaxSize) {
        auto head = At(pos, 4);
        if (head.empty()) break;
        uint32_t h = Be32(head.data());
        uint32_t length = FrameLength(h);
        if (length < 24) break;
        if (frames == 0) key = StreamKey(h);
        else if (StreamKey(h) != key) break;
        // A frame cut off by the end of the media is not counted.
        if (length > Available() - pos) break;
        pos += length;
        ++frames;
    }
    if (frames == 0 || (!tagged && frames < kMinFrames)) return 0;
    auto trailer = At(pos, 3);
    if (!trailer.empty() && MatchAt(trailer, 0, "TAG", 3) && Available() - pos >= kId3v1Size) pos += kId3v1Size;
    return pos;
}

} // namespace kestrin
