#pragma once
// MPEG-4 video for iTunes: a major brand of the "M4V" family. Size from the shared box walk.
#include "carve/scanners/family/CIsoMediaScanner.h"

namespace kestrin {

class CM4VScanner final : public CIsoMediaScanner {
protected:
    bool AcceptsBrands(std::span<const uint8_t> sector) const override;
};

} // namespace kestrin
