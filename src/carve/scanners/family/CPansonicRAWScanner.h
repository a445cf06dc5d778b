#pragma once
// Panasonic raw image (RW2): the Panasonic header variant, any other maker. Size from the shared
// directory walk; the largest JPEG it references is the embedded preview.
#include "carve/scanners/family/CTiffWalkScanner.h"

namespace kestrin {

class CPansonicRAWScanner final : public CTiffWalkScanner {
public:
    CPansonicRAWScanner() : CTiffWalkScanner(true) {}

protected:
    bool Accepts(const TiffFacts& f) const override;
};

} // namespace kestrin
