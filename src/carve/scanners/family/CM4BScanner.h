#pragma once
// MPEG-4 audio book: the major brand "M4B ". Size from the shared box walk.
#include "carve/scanners/family/CIsoMediaScanner.h"

namespace kestrin {

class CM4BScanner final : public CIsoMediaScanner {
protected:
    bool AcceptsBrands(std::span<const uint8_t> sector) const override;
};

} // namespace kestrin
