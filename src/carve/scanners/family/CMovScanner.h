#pragma once
// QuickTime movie: the major brand "qt  ". Size from the shared box walk.
#include "carve/scanners/family/CIsoMediaScanner.h"

namespace kestrin {

class CMovScanner final : public CIsoMediaScanner {
protected:
    bool AcceptsBrands(std::span<const uint8_t> sector) const override;
};

} // namespace kestrin
