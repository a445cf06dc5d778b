#pragma once
// AVI video compressed with DivX: a video stream handler of the DivX family. Size from the shared
// RIFF walk.
#include "carve/scanners/family/CRiffScanner.h"

namespace kestrin {

class CDIVXScanner final : public CRiffScanner {
public:
    CDIVXScanner() : CRiffScanner("AVI ", true) {}

protected:
    bool Accepts(std::span<const uint8_t> head) const override;
};

} // namespace kestrin
