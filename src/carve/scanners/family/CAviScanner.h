#pragma once
// AVI video. Size from the shared RIFF walk.
#include "carve/scanners/family/CRiffScanner.h"

namespace kestrin {

class CAviScanner final : public CRiffScanner {
public:
    CAviScanner() : CRiffScanner("AVI ", true) {}

protected:
    bool Accepts(std::span<const uint8_t> head) const override;
};

} // namespace kestrin
