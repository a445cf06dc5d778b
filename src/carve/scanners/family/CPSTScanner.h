#pragma once
// Outlook personal folders: "SM" at offset 8 and a known format version at 10 (21 and 23 are
// the wide, 64-bit format); the size is the header's end-of-file field.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CPSTScanner : public CFamilyScanner {
public:
    int Verify(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
    uint64_t FindFileSize(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
};

} // namespace kestrin
