#pragma once
// 7-Zip archive: always accepted; the size is the next-header offset plus the next-header
// size plus the 32-byte start header (low halves only), a sum above 0x77000000 carved as 300 MiB.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class C7zScanner final : public CFamilyScanner {
public:
    static constexpr uint64_t kLimit = 0x77000000;
    static constexpr uint64_t kCapped = 314572800;
    int Verify(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
    uint64_t FindFileSize(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
};

} // namespace kestrin
