#pragma once
// Photoshop image (PSD, and the large-document PSB variant): the 26-byte header, the colour-mode,
// image-resource and layer sections (each with its length), then the merged image data, raw
// (channels x rows x row bytes) or run-length coded (a table of row byte counts, then the rows).
//
// Bounds: header dimensions as the format allows (56 channels, 30000 or 300000 pixels a side),
// kMaxSize bytes.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CPsdScanner final : public CFamilyScanner {
public:
    static constexpr uint64_t kMaxSize = 4ull << 30;

protected:
    uint64_t Walk(std::span<const uint8_t> sector) override;
};

} // namespace kestrin
