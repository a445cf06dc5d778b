#pragma once
// Leica raw image (RW2 layout): the Panasonic header variant, made by Leica. Size from the shared
// directory walk; the largest JPEG it references is the embedded preview.
#include "carve/scanners/family/CTiffWalkScanner.h"

namespace kestrin {

class CLeicaRAWScanner final : public CTiffWalkScanner {
public:
    CLeicaRAWScanner() : CTiffWalkScanner(true) {}

protected:
    bool Accepts(const TiffFacts& f) const override;
};

} // namespace kestrin
