#pragma once
// Sony raw image (SRF): the format of the DSC-F828 and DSC-V3. Size from the shared directory
// walk; the largest JPEG it references is the embedded preview.
#include "carve/scanners/family/CTiffWalkScanner.h"

namespace kestrin {

class CSonySRFScanner final : public CTiffWalkScanner {
public:
    CSonySRFScanner() : CTiffWalkScanner(true) {}

protected:
    bool Accepts(const TiffFacts& f) const override;

private:
    static bool IsSrf(const TiffFacts& f) { return ModelHas(f, "DSC-F828") || ModelHas(f, "DSC-V3"); }
};

} // namespace kestrin
