#pragma once
// Canon raw image (CRW, the CIFF heap format): a little-endian header of the given length with
// "HEAPCCDR" at 6, then the root heap up to the end of the file. A heap's table sits at its end:
// a 16-bit entry count, 10-byte entries (tag, length, offset within the heap) and, last, the
// 32-bit offset of the table itself. The end is found by looking for the spot where such a
// table closes exactly: the table's own offset in the last four bytes, and every entry inside
// the heap before the table. The JpgFromRaw entry (tag 0x2007) of the root table is the
// embedded preview.
//
// Bounds: the end is looked for within kMaxSize bytes; tables of at most kMaxEntries entries.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CCanonCRWScanner final : public CFamilyScanner {
public:
    static constexpr uint64_t kMaxSize = 64ull << 20;
    static constexpr uint32_t kMaxEntries = 256;

    std::optional<std::pair<uint32_t, uint8_t>> HeaderKey() const override;
    bool IsHeader(std::span<const uint8_t> sector) override;

protected:
    uint64_t Walk(std::span<const uint8_t> sector) override;
};

} // namespace kestrin
