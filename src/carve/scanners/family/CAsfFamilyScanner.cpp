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

// ASF objects (little-endian): a 16-byte GUID and the object's 64-bit size, then its fields.
namespace asf {
constexpr size_t kGuidSize = 16;
using ObjectSize = LeField<uint64_t, 16>;
constexpr uint32_t kObjectHeaderSize = 24;
// The header object: the number of objects it holds, two reserved bytes, then those objects.
using HeaderObjects = LeField<uint32_t, 24>;
constexpr uint32_t kHeaderObjectSize = 30;
// The file-properties object's file size; the stream-properties object's stream type.
constexpr uint32_t kFileSizeAt = 40;
constexpr uint32_t kStreamTypeAt = 24;
} // namespace asf
} // namespace

uint64_t CAsfFamilyScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, kHeaderObject, asf::kGuidSize) || !Fits(sector, 0, asf::kHeaderObjectSize)) return 0;
    uint64_t headerSize = asf::ObjectSize::At(sector.data());
    uint32_t objects = asf::HeaderObjects::At(sector.data());
    if (headerSize < asf::kHeaderObjectSize || headerSize > kMaxHeader || objects > kMaxObjects) return 0;
    uint64_t pos = asf::kHeaderObjectSize, fileSize = 0;
    bool audio = false, video = false;
    for (uint32_t i = 0; i < objects && pos + asf::kObjectHeaderSize <= headerSize; ++i) {
        auto h = At(pos, asf::kObjectHeaderSize);
        if (h.empty()) return 0;
        uint64_t length = asf::ObjectSize::At(h.data());
        if (length < asf::kObjectHeaderSize || length > headerSize - pos) return 0;
        if (std::memcmp(h.data(), kFileProperties, asf::kGuidSize) == 0) {
            auto f = At(pos + asf::kFileSizeAt, 8);
            if (f.empty()) return 0;
            fileSize = Le64(f.data());
        } else if (std::memcmp(h.data(), kStreamProperties, asf::kGuidSize) == 0) {
            auto s = At(pos + asf::kStreamTypeAt, asf::kGuidSize);
            if (!s.empty() && std::memcmp(s.data(), kAudioMedia, asf::kGuidSize) == 0) audio = true;
            if (!s.empty() && std::memcmp(s.data(), kVideoMedia, asf::kGuidSize) == 0) video = true;
        }
        pos += length;
    }
    if (fileSize < headerSize || !Accepts(audio, video)) return 0;
    return fileSize;
}

} // namespace kestrin
