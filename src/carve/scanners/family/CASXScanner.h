#pragma once
// Windows Media playlist (ASX): an XML text that opens with "<ASX" (any case, after optional
// white space) and ends after the closing "</ASX>" tag (any case).
// No type id selects this class; it never takes part in a scan.
//
// Bounds: the closing tag is looked for within kMaxSize bytes.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CASXScanner final : public CFamilyScanner {
public:
    static constexpr uint32_t kMaxSize = 1u << 20;

protected:
    uint64_t Walk(std::span<const uint8_t> sector) override;
};

} // namespace kestrin
