#include "carve/scanners/family/CFujiRAFScanners.h"

#include "util/Bytes.h"

namespace kestrin {

namespace {
// Fujifilm RAF header (big-endian): the signature and its format version, then the offsets and
// lengths of the preview JPEG and the raw data, and two fields that may give the file's end.
namespace raf {
constexpr size_t kSignatureSize = 16;
constexpr size_t kVersion = 16, kVersionEnd = 20; // four digits
constexpr size_t kJpegOffset = 84, kJpegLength = 88;
constexpr size_t kRawOffset = 100, kRawLength = 104;
constexpr size_t kEndMark = 128, kTailLength = 132;
constexpr size_t kMinSector = 136;
} // namespace raf
} // namespace

// The header proper: "FUJIFILMCCD-RAW " followed by a four-digit format version, and the
// fields this scanner reads inside the sector.
int CFujiRAFScanners::Verify(uint64_t, std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "FUJIFILMCCD-RAW ", raf::kSignatureSize) || !Fits(sector, 0, raf::kMinSector)) return 0;
    for (size_t i = raf::kVersion; i < raf::kVersionEnd; ++i)
        if (sector[i] < '0' || sector[i] > '9') return 0;
    return 1;
}

uint64_t CFujiRAFScanners::FindFileSize(uint64_t sectorNumber, std::span<const uint8_t> sector) {
    if (!Begin(sectorNumber) || !Fits(sector, 0, raf::kMinSector)) return 0;
    const uint8_t* p = sector.data();
    uint64_t offset = Be32(p + raf::kRawOffset), length = Be32(p + raf::kRawLength);
    uint64_t end = offset + length;
    uint64_t endMark = Be32(p + raf::kEndMark), tail = Be32(p + raf::kTailLength);
    uint64_t size = end;
    if (end == endMark)
        size = endMark + tail;
    else if (tail == length)
        size += tail;
    if (size > kMaxSize) size = kMaxSize;
    SetEmbedded(Be32(p + raf::kJpegOffset), Be32(p + raf::kJpegLength));
    return size;
}

} // namespace kestrin
