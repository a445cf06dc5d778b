#include "carve/scanners/family/CAsfFamilyScanner.h"

#include <cstring>

#include "util/Bytes.h"

namespace kestrin {

namespace {
constexpr uint8_t kHeaderObject[16] = {0x30, 0x26, 0xB2, 0x75, 0x8E, 0x66, 0xCF, 0x11,
                                       0xA6, 0xD9, 0x00, 0xAA, 0x00, 0x62, 0xCE, 0x6C};
constexpr uint8_t kFileProperties[16] = {0xA1, 0xDC, 0xAB, 0x8C, 0x47, 0xA9, 0xCF, 0x11,
                                         0x8E, 0xE4, 0x00, 0xC0, 0x0C, 0x20, 0x53, 0x65};
constexpr uint8_t kStreamProperties[16] = {0x91, 0x07, 0xDC, 0xB7, 0xB7, 0xA9, 0xCF, 0x11,
                                           0x8E, 0xE6, 0x00, 0xC0, 0x0C, 0x20, 0x53, 0x65};
constexpr uint8_t kAudioMedia[16] = {0x40, 0x9E, 0x69, 0xF8, 0x4D, 0x5B, 0xCF, 0x11,
                                     0xA8, 0xFD, 0x00, 0x80, 0x5F, 0x5C, 0x44, 0x2B};
constexpr uint8_t kVideoMedia[16] = {0xC0, 0xEF, 0x19, 0xBC, 0x4D, 0x5B, 0xCF, 0x11,
                                     0xA8, 0xFD, 0x00, 0x80, 0x5F, 0x5C, 0x44, 0x2B};
} // namespace

uint64_t CAsfFamilyScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, kHeaderObject, 16) || !Fits(sector, 0, 30)) return 0;
    uint64_t headerSize = Le64(sector.data() + 16);
    uint32_t objects = Le32(sector.data() + 24);
    if (headerSize < 30 || headerSize > kMaxHeader || objects > kMaxObjects) return 0;
    uint64_t pos = 30, fileSize = 0;
    bool audio = false, video = false;
    for (uint32_t i = 0; i < objects && pos + 24 <= headerSize; ++i) {
        auto h = At(pos, 24);
        if (h.empty()) return 0;
        uint64_t length = Le64(h.data() + 16);
        if (length < 24 || length > headerSize - pos) return 0;
        if (std::memcmp(h.data(), kFileProperties, 16) == 0) {
            auto f = At(pos + 40, 8);
            if (f.empty()) return 0;
            fileSize = Le64(f.data());
        } else if (std::memcmp(h.data(), kStreamProperties, 16) == 0) {
            auto s = At(pos + 24, 16);
            if (!s.empty() && std::memcmp(s.data(), kAudioMedia, 16) == 0) audio = true;
            if (!s.empty() && std::memcmp(s.data(), kVideoMedia, 16) == 0) video = true;
        }
        pos += length;
    }
    if (fileSize < headerSize || !Accepts(audio, video)) return 0;
    return fileSize;
}

} // namespace kestrin
