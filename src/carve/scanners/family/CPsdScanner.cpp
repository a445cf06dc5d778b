#include "carve/scanners/family/CPsdScanner.h"

#include "util/Bytes.h"

namespace kestrin {

uint64_t CPsdScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "8BPS", 4) || !Fits(sector, 0, 30)) return 0;
    const uint8_t* p = sector.data();
    uint16_t version = Be16(p + 4);
    if (version != 1 && version != 2) return 0;
    for (int i = 6; i < 12; ++i)
        if (p[i]) return 0;
    bool large = version == 2;
    uint32_t channels = Be16(p + 12), rows = Be32(p + 14), columns = Be32(p + 18), depth = Be16(p + 22);
    uint32_t side = large ? 300000 : 30000;
    if (channels == 0 || channels > 56 || rows == 0 || rows > side || columns == 0 || columns > side) return 0;
    if (depth != 1 && depth != 8 && depth != 16 && depth != 32) return 0;
    uint64_t pos = 26;
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
    if (compression == 0) {
        uint64_t data = lines * rowBytes;
        if (data > kMaxSize - pos) return 0;
        return pos + data;
    }
    if (compression != 1) return 0;
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
