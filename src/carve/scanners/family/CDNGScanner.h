#pragma once
// Digital negative: a TIFF with a DNG version tag. Size from the shared directory walk; the
// largest JPEG it references is the embedded preview.
#include "carve/scanners/family/CTiffWalkScanner.h"

namespace kestrin {

class CDNGScanner final : public CTiffWalkScanner {
public:
    CDNGScanner() : CTiffWalkScanner(true) {}

protected:
    bool Accepts(const TiffFacts& f) const override;
};

} // namespace kestrin
