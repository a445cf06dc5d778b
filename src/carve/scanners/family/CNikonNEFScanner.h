#pragma once
// Nikon raw image (NEF): a Nikon TIFF other than a Coolpix NRW. Size from the shared directory
// walk; the largest JPEG it references is the embedded preview.
#include "carve/scanners/family/CTiffWalkScanner.h"

namespace kestrin {

class CNikonNEFScanner final : public CTiffWalkScanner {
public:
    CNikonNEFScanner() : CTiffWalkScanner(true) {}

protected:
    bool Accepts(const TiffFacts& f) const override;
};

} // namespace kestrin
