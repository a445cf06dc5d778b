#pragma once
// PNG image: the signature, an IHDR chunk first, then chunks (big-endian length, four-letter
// type, data, CRC) up to and including IEND.
//
// Bounds: kMaxSize bytes and kMaxChunks chunks.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CPNGScanner final : public CFamilyScanner {
public:
    static constexpr uint64_t kMaxSize = 512ull << 20;
    static constexpr int kMaxChunks = 1 << 20;

protected:
    uint64_t Walk(std::span<const uint8_t> sector) override;
};

} // namespace kestrin
