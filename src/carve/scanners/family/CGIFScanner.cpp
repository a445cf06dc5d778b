#include "carve/scanners/family/CGIFScanner.h"

#include "util/Bytes.h"

namespace kestrin {

namespace {
// GIF: the signature and logical screen descriptor, an optional global colour table, then blocks
// that each start with an introducer byte.
namespace gif {
constexpr size_t kScreenFlags = 10;
constexpr uint64_t kScreenEnd = 13;
constexpr uint8_t kHasColourTable = 0x80;
constexpr uint8_t kColourTableBits = 0x07; // the table holds 2^(bits + 1) three-byte colours
constexpr uint8_t kExtension = 0x21, kImage = 0x2C, kTrailer = 0x3B;
constexpr uint64_t kExtensionHead = 2; // introducer and label, then sub-blocks
// An image descriptor: introducer, position and size, flags; then the local colour table, the
// LZW code size and sub-blocks.
constexpr uint32_t kImageDescriptorSize = 10;
constexpr size_t kImageFlags = 9;
constexpr uint64_t kCodeSizeByte = 1;

uint64_t ColourTableBytes(uint8_t flags) { return 3u << ((flags & kColourTableBits) + 1); }
} // namespace gif
} // namespace

bool CGIFScanner::SkipSubBlocks(uint64_t& pos) {
    while (pos < kMaxSize) {
        // Sub-block lengths are read a window at a time.
        auto block = Upto(pos, kMaxSpan);
        if (block.empty()) return false;
        size_t i = 0;
        while (i < block.size()) {
            uint8_t length = block[i];
            if (length == 0) {
                pos += i + 1;
                return true;
            }
            i += 1 + size_t(length);
        }
        pos += i;
    }
    return false;
}

uint64_t CGIFScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "GIF87a", 6) && !MatchAt(sector, 0, "GIF89a", 6)) return 0;
    if (!Fits(sector, 0, gif::kScreenEnd)) return 0;
    uint8_t flags = sector[gif::kScreenFlags];
    uint64_t pos = gif::kScreenEnd;
    if (flags & gif::kHasColourTable) pos += gif::ColourTableBytes(flags);
    while (pos < kMaxSize) {
        auto b = At(pos, 1);
        if (b.empty()) return 0;
        switch (b[0]) {
        case gif::kTrailer:
            return pos + 1;
        case gif::kExtension:
            pos += gif::kExtensionHead;
            if (!SkipSubBlocks(pos)) return 0;
            break;
        case gif::kImage: {
            auto d = At(pos, gif::kImageDescriptorSize);
            if (d.empty()) return 0;
            pos += gif::kImageDescriptorSize;
            uint8_t imageFlags = d[gif::kImageFlags];
            if (imageFlags & gif::kHasColourTable) pos += gif::ColourTableBytes(imageFlags);
            pos += gif::kCodeSizeByte;
            if (!SkipSubBlocks(pos)) return 0;
            break;
        }
        default:
            return 0;
        }
    }
    return 0;
}

} // namespace kestrin
