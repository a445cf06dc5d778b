#pragma once
// Sony raw image (SR2): the format of the DSC-R1. Size from the shared directory walk; the largest
// JPEG it references is the embedded preview.
#include "carve/scanners/family/CTiffWalkScanner.h"

namespace kestrin {

class CSonySR2Scanner final : public CTiffWalkScanner {
public:
    CSonySR2Scanner() : CTiffWalkScanner(true) {}

protected:
    bool Accepts(const TiffFacts& f) const override;

private:
    static bool IsSr2(const TiffFacts& f) { return ModelHas(f, "DSC-R1"); }
};

} // namespace kestrin
