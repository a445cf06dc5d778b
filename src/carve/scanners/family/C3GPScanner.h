#pragma once
// 3GPP and 3GPP2 multimedia: a major brand of the "3gp" or "3g2" families. Size from the shared
// box walk.
#include "carve/scanners/family/CIsoMediaScanner.h"

namespace kestrin {

class C3GPScanner final : public CIsoMediaScanner {
protected:
    bool AcceptsBrands(std::span<const uint8_t> sector) const override;
};

} // namespace kestrin
