#pragma once
// TIFF image: any TIFF that is not a camera raw file. Size from the shared directory walk; no
// embedded item is reported.
#include "carve/scanners/family/CTiffWalkScanner.h"

namespace kestrin {

class CTiffScanner final : public CTiffWalkScanner {
public:
    CTiffScanner() : CTiffWalkScanner(false) {}

protected:
    bool Accepts(const TiffFacts& f) const override;
};

} // namespace kestrin
