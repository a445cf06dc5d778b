#include "carve/scanners/family/CAmrScanner.h"

#include <algorithm>

#include "util/Bytes.h"

namespace kestrin {

namespace {
// Stored frames carry the quality bit set (a zero-filled gap is not a run of frames).
// Speech bytes after the table-of-contents byte, by frame type; -1 = reserved.
constexpr int kNarrowBand[16] = {12, 13, 15, 17, 19, 20, 26, 31, 5, -1, -1, -1, -1, -1, -1, 0};
constexpr int kWideBand[16] = {17, 23, 32, 36, 40, 46, 50, 58, 60, 5, -1, -1, -1, -1, 0, 0};
} // namespace

uint64_t CAmrScanner::Walk(std::span<const uint8_t> sector) {
    const int* sizes;
    uint64_t pos;
    if (MatchAt(sector, 0, "#!AMR\n", 6)) {
        sizes = kNarrowBand;
        pos = 6;
    } else if (MatchAt(sector, 0, "#!AMR-WB\n", 9)) {
        sizes = kWideBand;
        pos = 9;
    } else {
        return 0;
    }
    uint64_t limit = std::min(Available(), kMaxSize);
    uint32_t frames = 0;
    while (pos < limit) {
        auto block = Upto(pos, kMaxSpan);
        if (block.empty()) break;
        size_t i = 0;
        bool stop = false;
        // Frames whose table-of-contents byte lies in this block.
        while (i < block.size()) {
            uint8_t toc = block[i];
            int length = sizes[(toc >> 3) & 15];
            if (length < 0 || (toc & 0x87) != 0x04) {
                stop = true;
                break;
            }
            if (uint64_t(length) + 1 > limit - (pos + i)) {
                stop = true;
                break;
            }
            i += size_t(length) + 1;
            ++frames;
        }
        pos += i;
        if (stop) break;
    }
    return frames >= kMinFrames ? pos : 0;
}

} // namespace kestrin
