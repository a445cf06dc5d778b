#pragma once
// Canon raw image (CR2): a TIFF with the "CR" marker at offset 8. Size from the shared directory
// walk; the largest JPEG it references is the embedded preview.
#include "carve/scanners/family/CTiffWalkScanner.h"

namespace kestrin {

class CCanonCR2Scanner final : public CTiffWalkScanner {
public:
    CCanonCR2Scanner() : CTiffWalkScanner(true) {}

protected:
    bool Accepts(const TiffFacts& f) const override;
};

} // namespace kestrin
