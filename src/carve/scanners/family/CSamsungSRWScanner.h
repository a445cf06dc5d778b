#pragma once
// Samsung raw image (SRW): a Samsung TIFF that holds raw sensor data. Size from the shared
// directory walk; the largest JPEG it references is the embedded preview.
#include "carve/scanners/family/CTiffWalkScanner.h"

namespace kestrin {

class CSamsungSRWScanner final : public CTiffWalkScanner {
public:
    CSamsungSRWScanner() : CTiffWalkScanner(true) {}

protected:
    bool Accepts(const TiffFacts& f) const override;
};

} // namespace kestrin
