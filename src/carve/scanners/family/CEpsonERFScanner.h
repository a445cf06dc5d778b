#pragma once
// Epson raw image (ERF): a TIFF made by Seiko Epson. Size from the shared directory walk; no
// embedded item is reported.
#include "carve/scanners/family/CTiffWalkScanner.h"

namespace kestrin {

class CEpsonERFScanner final : public CTiffWalkScanner {
public:
    CEpsonERFScanner() : CTiffWalkScanner(false) {}

protected:
    bool Accepts(const TiffFacts& f) const override;
};

} // namespace kestrin
