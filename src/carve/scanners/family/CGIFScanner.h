#pragma once
// GIF image: the screen descriptor and its colour table, then extension and image blocks with
// their data sub-blocks, up to and including the trailer byte.
//
// Bounds: kMaxSize bytes (every step advances at least one byte).
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CGIFScanner final : public CFamilyScanner {
public:
    static constexpr uint64_t kMaxSize = 128ull << 20;

protected:
    uint64_t Walk(std::span<const uint8_t> sector) override;

private:
    // Skips the sub-blocks at `pos`; false when they run off the media or the limit.
    bool SkipSubBlocks(uint64_t& pos);
};

} // namespace kestrin
