#pragma once
// Windows bitmap: the reserved fields are zero and the information header is the
// 40-byte kind; the size field of the file header, capped at 60 MiB.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CBMPScanner final : public CFamilyScanner {
public:
    // A damaged size field gives a capped file, not a refusal.
    static constexpr uint64_t kMaxSize = 0x3C00000;
    int Verify(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
    uint64_t FindFileSize(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
};

} // namespace kestrin
