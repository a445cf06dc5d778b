#pragma once
// AMR speech (narrow-band "#!AMR\n" and wide-band "#!AMR-WB\n" storage format): after the magic,
// frames follow each other, each a table-of-contents byte whose frame type gives the frame's
// length; a reserved frame type, padding bits that are not zero or a cleared quality bit end
// the file.
//
// Bounds: kMaxSize bytes.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CAmrScanner final : public CFamilyScanner {
public:
    static constexpr uint64_t kMaxSize = 64ull << 20;
    static constexpr uint32_t kMinFrames = 4;

protected:
    uint64_t Walk(std::span<const uint8_t> sector) override;
};

} // namespace kestrin
