#include "carve/scanners/family/CMpegScanner.h"

#include "util/Bytes.h"

namespace kestrin {

namespace {
// MPEG program stream units: a start code 00 00 01 and a code byte. A pack header's length
// depends on the version its fifth byte marks (MPEG-2: 14 bytes plus the stuffing its last byte
// counts; MPEG-1: 12 bytes); any other unit gives its length after the start code.
namespace mpeg {
constexpr uint8_t kPack = 0xBA, kProgramEnd = 0xB9, kFirstStream = 0xBB;
constexpr uint32_t kStartCodeSize = 4;
constexpr uint32_t kMaxPackHeader = 14;
constexpr size_t kPackVersion = 4;
constexpr uint8_t kMpeg2Mask = 0xC0, kMpeg2 = 0x40, kMpeg1Mask = 0xF0, kMpeg1 = 0x20;
constexpr size_t kMpeg2Stuffing = 13;
constexpr uint8_t kStuffingBits = 0x07;
constexpr uint64_t kMpeg2PackSize = 14, kMpeg1PackSize = 12;
constexpr size_t kUnitLength = 4; // u16 big-endian after the start code
constexpr uint64_t kUnitHeader = 6;
} // namespace mpeg
} // namespace

uint64_t CMpegScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "\x00\x00\x01\xBA", 4)) return 0;
    uint64_t pos = 0;
    uint32_t packs = 0, units = 0;
    for (; units < kMaxUnits && pos < kMaxSize; ++units) {
        auto head = Upto(pos, mpeg::kMaxPackHeader);
        if (head.size() < mpeg::kStartCodeSize || head[0] != 0 || head[1] != 0 || head[2] != 1) break;
        uint8_t code = head[3];
        if (code == mpeg::kProgramEnd) return packs ? pos + mpeg::kStartCodeSize : 0;
        if (head.size() < mpeg::kMaxPackHeader) break;
        if (code == mpeg::kPack) {
            uint8_t marker = head[mpeg::kPackVersion];
            uint64_t length;
            if ((marker & mpeg::kMpeg2Mask) == mpeg::kMpeg2)
                length = mpeg::kMpeg2PackSize + (head[mpeg::kMpeg2Stuffing] & mpeg::kStuffingBits);
            else if ((marker & mpeg::kMpeg1Mask) == mpeg::kMpeg1)
                length = mpeg::kMpeg1PackSize;
            else
                break;
            pos += length;
            ++packs;
            continue;
        }
        if (code < mpeg::kFirstStream) break; // not a system header or stream packet
        pos += mpeg::kUnitHeader + uint64_t(Be16(head.data() + mpeg::kUnitLength));
    }
    // One pack header and what follows it at the least.
    if (packs == 0 || units < 2 || pos > Available()) return 0;
    return pos;
}

} // namespace kestrin
