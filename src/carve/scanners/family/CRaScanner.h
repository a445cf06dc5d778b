#pragma once
// RealAudio: the big-endian marker ".ra4" at offset 8; the big-endian length at 12 plus 40,
// 0 when the length is 0, and 1024 bytes when the result is above 0xA0000000.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CRaScanner final : public CFamilyScanner {
public:
    static constexpr uint64_t kLimit = 0xA0000000;
    static constexpr uint64_t kCapped = 1024;
    int Verify(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
    uint64_t FindFileSize(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
};

} // namespace kestrin
