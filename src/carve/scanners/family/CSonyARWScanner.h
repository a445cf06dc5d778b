#pragma once
// Sony raw image (ARW): a Sony TIFF that is neither SR2 nor SRF. Size from the shared directory
// walk; the largest JPEG it references is the embedded preview.
#include "carve/scanners/family/CTiffWalkScanner.h"

namespace kestrin {

class CSonyARWScanner final : public CTiffWalkScanner {
public:
    CSonyARWScanner() : CTiffWalkScanner(true) {}

protected:
    bool Accepts(const TiffFacts& f) const override;

private:
    static bool IsSr2(const TiffFacts& f) { return ModelHas(f, "DSC-R1"); }
    static bool IsSrf(const TiffFacts& f) { return ModelHas(f, "DSC-F828") || ModelHas(f, "DSC-V3"); }
};

} // namespace kestrin
