#pragma once
// Olympus raw image (ORF): the Olympus variant of the TIFF header. Size from the shared directory
// walk; the largest JPEG it references is the embedded preview.
#include "carve/scanners/family/CTiffWalkScanner.h"

namespace kestrin {

class COlympusORFScanner final : public CTiffWalkScanner {
public:
    COlympusORFScanner() : CTiffWalkScanner(true) {}

protected:
    bool Accepts(const TiffFacts& f) const override;
};

} // namespace kestrin
