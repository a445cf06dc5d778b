#pragma once
// Kodak raw image (KDC): any other Kodak camera TIFF. Size from the shared directory walk; the
// largest JPEG it references is the embedded preview.
#include "carve/scanners/family/CTiffWalkScanner.h"

namespace kestrin {

class CKodakKDCScanner final : public CTiffWalkScanner {
public:
    CKodakKDCScanner() : CTiffWalkScanner(true) {}

protected:
    bool Accepts(const TiffFacts& f) const override;

private:
    static bool IsKodak(const TiffFacts& f) { return MakeIs(f, "EASTMAN KODAK") || MakeIs(f, "KODAK"); }
};

} // namespace kestrin
