#pragma once
// AVI video compressed with XviD: a video stream handler "XVID". Size from the shared RIFF walk.
#include "carve/scanners/family/CRiffScanner.h"

namespace kestrin {

class CXVIDScanner final : public CRiffScanner {
public:
    CXVIDScanner() : CRiffScanner("AVI ", true) {}

protected:
    bool Accepts(std::span<const uint8_t> head) const override;
};

} // namespace kestrin
