#pragma once
// Pentax raw image (PEF): a Pentax or Ricoh camera TIFF with raw data. Size from the shared
// directory walk; the largest JPEG it references is the embedded preview.
#include "carve/scanners/family/CTiffWalkScanner.h"

namespace kestrin {

class CPentaxPEFScanner final : public CTiffWalkScanner {
public:
    CPentaxPEFScanner() : CTiffWalkScanner(true) {}

protected:
    bool Accepts(const TiffFacts& f) const override;
};

} // namespace kestrin
