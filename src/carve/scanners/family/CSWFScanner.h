#pragma once
// Flash movie: always accepted; an uncompressed movie ("FWS") carries its length at offset 4,
// a compressed one gets the record's fixed size.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CSWFScanner final : public CFamilyScanner {
public:
    int Verify(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
    uint64_t FindFileSize(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
};

} // namespace kestrin
