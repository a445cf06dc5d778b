#include "carve/scanners/family/CFujiRAFScanners.h"

#include "util/Bytes.h"

namespace kestrin {

// The header proper: "FUJIFILMCCD-RAW " followed by a four-digit format version, and the
// fields this scanner reads inside the sector.
int CFujiRAFScanners::Verify(uint64_t, std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "FUJIFILMCCD-RAW ", 16) || !Fits(sector, 0, 136)) return 0;
    for (int i = 16; i < 20; ++i)
        if (sector[i] < '0' || sector[i] > '9') return 0;
    return 1;
}

uint64_t CFujiRAFScanners::FindFileSize(uint64_t sectorNumber, std::span<const uint8_t> sector) {
    if (!Begin(sectorNumber) || !Fits(sector, 0, 136)) return 0;
    const uint8_t* p = sector.data();
    uint64_t offset = Be32(p + 100), length = Be32(p + 104);
    uint64_t end = offset + length;
    uint64_t at128 = Be32(p + 128), at132 = Be32(p + 132);
    uint64_t size = end;
    if (end == at128)
        size = at128 + at132;
    else if (at132 == length)
        size += at132;
    if (size > kMaxSize) size = kMaxSize;
    SetEmbedded(Be32(p + 84), Be32(p + 88));
    return size;
}

} // namespace kestrin
