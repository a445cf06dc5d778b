#pragma once
// Nikon Coolpix raw image (NRW): a Nikon Coolpix TIFF. Size from the shared directory walk; the
// largest JPEG it references is the embedded preview.
#include "carve/scanners/family/CTiffWalkScanner.h"

namespace kestrin {

class CNikonNRWScanner final : public CTiffWalkScanner {
public:
    CNikonNRWScanner() : CTiffWalkScanner(true) {}

protected:
    bool Accepts(const TiffFacts& f) const override;
};

} // namespace kestrin
