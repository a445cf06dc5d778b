#pragma once
// Sigma raw image (X3F): the directory of sections stands at the end of the file and the file's
// last four bytes give its offset. The walk looks for a directory ("SECd", version, entry count,
// 12-byte entries of offset, length and type) that is followed directly by a pointer to itself;
// every entry must lie before it. The largest JPEG image section is the embedded preview.
//
// Bounds: the directory is looked for within kMaxSize bytes; at most kMaxEntries entries.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CX3FScanner final : public CFamilyScanner {
public:
    static constexpr uint64_t kMaxSize = 256ull << 20;
    static constexpr uint32_t kMaxEntries = 1000;

protected:
    uint64_t Walk(std::span<const uint8_t> sector) override;
};

} // namespace kestrin
