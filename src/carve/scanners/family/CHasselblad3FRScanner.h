#pragma once
// Hasselblad raw image (3FR): a TIFF made by Hasselblad. Size from the shared directory walk; the
// largest JPEG it references is the embedded preview.
#include "carve/scanners/family/CTiffWalkScanner.h"

namespace kestrin {

class CHasselblad3FRScanner final : public CTiffWalkScanner {
public:
    CHasselblad3FRScanner() : CTiffWalkScanner(true) {}

protected:
    bool Accepts(const TiffFacts& f) const override;
};

} // namespace kestrin
