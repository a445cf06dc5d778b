#include "carve/scanners/family/CMrwScanner.h"

#include "util/Bytes.h"

namespace kestrin {

namespace {
// Minolta raw (big-endian): the "\0MRM" block holds the header blocks; its length says where the
// image data starts. Each header block is a four-byte id and a length. The picture-raw-dimensions
// block ("\0PRD") gives the sensor size and the storage method.
namespace mrw {
constexpr size_t kLength = 4; // u32, of each block
constexpr uint32_t kBlockHeader = 8;
namespace prd {
constexpr uint32_t kSize = 19;
constexpr size_t kRows = 8;     // u16
constexpr size_t kColumns = 10; // u16
constexpr size_t kStorage = 18;
constexpr uint8_t kPacked12Bit = 0x59; // else 16 bits a sample
} // namespace prd
} // namespace mrw
} // namespace

uint64_t CMrwScanner::Walk(std::span<const uint8_t> sector) {
    constexpr uint64_t kHead = mrw::kBlockHeader;
    if (!MatchAt(sector, 0, "\0MRM", 4) || !Fits(sector, 0, kHead)) return 0;
    uint64_t dataAt = kHead + uint64_t(Be32(sector.data() + mrw::kLength));
    if (dataAt > kMaxSize) return 0;
    uint64_t pos = kHead;
    for (int blocks = 0; blocks < kMaxBlocks && pos + kHead <= dataAt; ++blocks) {
        auto h = At(pos, mrw::kBlockHeader);
        if (h.empty() || h[0] != 0) return 0;
        uint64_t length = Be32(h.data() + mrw::kLength);
        if (MatchAt(h, 0, "\0PRD", 4)) {
            auto d = At(pos + kHead, mrw::prd::kSize);
            if (d.empty()) return 0;
            uint64_t rows = Be16(d.data() + mrw::prd::kRows), columns = Be16(d.data() + mrw::prd::kColumns);
            uint8_t storage = d[mrw::prd::kStorage];
            if (rows == 0 || columns == 0) return 0;
            uint64_t bytes = storage == mrw::prd::kPacked12Bit ? rows * columns * 12 / 8 : rows * columns * 2;
            if (bytes > kMaxSize - dataAt) return 0;
            return dataAt + bytes;
        }
        if (length > dataAt - pos - kHead) return 0;
        pos += kHead + length;
    }
    return 0;
}

} // namespace kestrin
