#pragma once
// Fujifilm raw image: the size comes from the big-endian data offset and length of the header
// (with the second block at 128/132), capped at 60 MiB; the preview JPEG is given by the
// offset and length at 84 and 88.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CFujiRAFScanners final : public CFamilyScanner {
public:
    static constexpr uint64_t kMaxSize = 0x3C00000;

    int Verify(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
    uint64_t FindFileSize(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
};

} // namespace kestrin
