#pragma once
// MPEG-4 video: the brand test looks at the three bytes at each position 0 to 499 of the
// first sector: "qt ", "3g2", "M4A", "M4B", "M4V" or "3gp" seen first rejects (another member's
// file), "mp4" or "avc" seen first accepts, neither rejects. Size from the shared box walk.
#include "carve/scanners/family/CIsoMediaScanner.h"

namespace kestrin {

class CMP4Scanner final : public CIsoMediaScanner {
protected:
    bool AcceptsBrands(std::span<const uint8_t> sector) const override;
};

} // namespace kestrin
