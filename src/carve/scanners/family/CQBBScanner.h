#pragma once
// QuickBooks backup. Its layout is not open, so no structure is walked: the header compare, and the
// record's fixed size as for a user-defined signature. No type id selects this class; it never
// takes part in a scan.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CQBBScanner final : public CFamilyScanner {
public:
    int Verify(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
    uint64_t FindFileSize(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
};

} // namespace kestrin
