#pragma once
// Minolta raw image (MRW): the "\0MRM" block gives the offset of the image data (8 plus its
// big-endian length); its "\0PRD" sub-block gives the sensor's rows and columns and the storage
// (12-bit packed or 16-bit). The size is the data offset plus the image's bytes.
//
// Bounds: at most kMaxBlocks sub-blocks within the header, kMaxSize bytes.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CMrwScanner final : public CFamilyScanner {
public:
    static constexpr uint64_t kMaxSize = 256ull << 20;
    static constexpr int kMaxBlocks = 64;

protected:
    uint64_t Walk(std::span<const uint8_t> sector) override;
};

} // namespace kestrin
