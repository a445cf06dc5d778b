#include "carve/scanners/family/CPsdScanner.h"

#include "util/Bytes.h"

namespace kestrin {

namespace {
// Photoshop file header (big-endian); the sections and the image data follow it.
namespace psd {
constexpr size_t kVersion = 4;         // u16: 1, or 2 for the large variant
constexpr size_t kReserved = 6;        // six zero bytes
constexpr size_t kReservedEnd = 12;
constexpr size_t kChannels = 12;       // u16
constexpr size_t kRows = 14;           // u32
constexpr size_t kColumns = 18;        // u32
constexpr size_t kDepth = 22;          // u16
constexpr uint64_t kHeaderSize = 26;
constexpr size_t kMinSector = 30;
constexpr uint16_t kClassic = 1, kLarge = 2;
constexpr uint32_t kMaxChannels = 56;
constexpr uint32_t kMaxSide = 30000, kMaxLargeSide = 300000;
constexpr uint16_t kRaw = 0, kRunLength = 1; // image data compressions
} // namespace psd
} // namespace

uint64_t CPsdScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "8BPS", 4) || !Fits(sector, 0, psd::kMinSector)) return 0;
    const uint8_t* p = sector.data();
    uint16_t version = Be16(p + psd::kVersion);
    if (version != psd::kClassic && version != psd::kLarge) return 0;
    for (size_t i = psd::kReserved; i < psd::kReservedEnd; ++i)
        if (p[i]) return 0;
    bool large = version == psd::kLarge;
    uint32_t channels = Be16(p + psd::kChannels), rows = Be32(p + psd::kRows), columns = Be32(p + psd::kColumns),
             depth = Be16(p + psd::kDepth);
    uint32_t side = large ? psd::kMaxLargeSide : psd::kMaxSide;
    if (channels == 0 || channels > psd::kMaxChannels || rows == 0 || rows > side || columns == 0 || columns > side)
        return 0;
    if (depth != 1 && depth != 8 && depth != 16 && depth != 32) return 0;
    uint64_t pos = psd::kHeaderSize;
    // Colour-mode data and image resources (32-bit lengths), layer and mask information (64-bit
    // in the large variant).
    for (int section = 0; section < 3; ++section) {
        bool wide = large && section == 2;
        auto h = At(pos, wide ? 8 : 4);
        if (h.empty()) return 0;
        uint64_t length = wide ? Be64(h.data()) : Be32(h.data());
        pos += (wide ? 8 : 4);
        if (length > kMaxSize - pos) return 0;
        pos += length;
    }
    auto c = At(pos, 2);
    if (c.empty()) return 0;
    uint16_t compression = Be16(c.data());
    pos += 2;
    uint64_t rowBytes = (uint64_t(columns) * depth + 7) / 8;
    uint64_t lines = uint64_t(channels) * rows;
    if (compression == psd::kRaw) {
        uint64_t data = lines * rowBytes;
        if (data > kMaxSize - pos) return 0;
        return pos + data;
    }
    if (compression != psd::kRunLength) return 0;
    // Run-length rows: a count per row (16-bit, 32-bit in the large variant), then the rows.
    uint32_t countBytes = large ? 4 : 2;
    uint64_t table = lines * countBytes;
    uint64_t sum = 0;
    for (uint64_t done = 0; done < lines;) {
        uint64_t n = lines - done;
        if (n > kMaxSpan / countBytes) n = kMaxSpan / countBytes;
        auto b = At(pos + done * countBytes, uint32_t(n * countBytes));
        if (b.empty()) return 0;
        for (uint64_t i = 0; i < n; ++i) {
            uint64_t v = large ? Be32(b.data() + i * 4) : Be16(b.data() + i * 2);
            // A row never packs to more than its raw bytes plus one count byte per 128.
            if (v > rowBytes + rowBytes / 128 + 2) return 0;
            sum += v;
        }
        done += n;
    }
    if (table + sum > kMaxSize - pos) return 0;
    return pos + table + sum;
}

} // namespace kestrin
