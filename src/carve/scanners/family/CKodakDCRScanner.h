#pragma once
// Kodak professional raw image (DCR): a Kodak TIFF of a DCS camera or ProBack. Size from the
// shared directory walk; no embedded item is reported.
#include "carve/scanners/family/CTiffWalkScanner.h"

namespace kestrin {

class CKodakDCRScanner final : public CTiffWalkScanner {
public:
    CKodakDCRScanner() : CTiffWalkScanner(false) {}

protected:
    bool Accepts(const TiffFacts& f) const override;

private:
    static bool IsKodak(const TiffFacts& f) { return MakeIs(f, "EASTMAN KODAK") || MakeIs(f, "KODAK"); }
};

} // namespace kestrin
