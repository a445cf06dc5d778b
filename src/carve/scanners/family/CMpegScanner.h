#pragma once
// MPEG program stream: pack headers (MPEG-1 or MPEG-2) with the system headers and packets that
// follow them, through the program end code. When the stream stops without an end code, the
// size is the end of the last complete pack or packet.
//
// Bounds: kMaxSize bytes and kMaxUnits packs and packets.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CMpegScanner final : public CFamilyScanner {
public:
    static constexpr uint64_t kMaxSize = 4ull << 30;
    static constexpr uint32_t kMaxUnits = 4u << 20;

protected:
    uint64_t Walk(std::span<const uint8_t> sector) override;
};

} // namespace kestrin
