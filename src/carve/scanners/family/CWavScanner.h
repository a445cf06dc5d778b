#pragma once
// Wave audio: form "WAVE" with its format chunk. Size from the shared RIFF walk.
#include "carve/scanners/family/CRiffScanner.h"

namespace kestrin {

class CWavScanner final : public CRiffScanner {
public:
    CWavScanner() : CRiffScanner("WAVE", false) {}

protected:
    bool Accepts(std::span<const uint8_t> head) const override;
};

} // namespace kestrin
