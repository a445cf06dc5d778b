#pragma once
// Kodak DC25 raw image (K25): a Kodak TIFF of the DC25 family. Size from the shared directory
// walk; the largest JPEG it references is the embedded preview.
#include "carve/scanners/family/CTiffWalkScanner.h"

namespace kestrin {

class CKodakDC25Scanner final : public CTiffWalkScanner {
public:
    CKodakDC25Scanner() : CTiffWalkScanner(true) {}

protected:
    bool Accepts(const TiffFacts& f) const override;

private:
    static bool IsKodak(const TiffFacts& f) { return MakeIs(f, "EASTMAN KODAK") || MakeIs(f, "KODAK"); }
};

} // namespace kestrin
