#pragma once
// MPEG audio (MP3): an optional ID3v2 tag, then MPEG audio frames with valid headers (version,
// layer and sample rate as in the first frame) for as long as they follow each other, then an
// optional 128-byte ID3v1 tag. Without an ID3v2 tag at least kMinFrames frames must follow
// each other before the candidate is accepted.
//
// Bounds: kMaxSize bytes (and so at most kMaxSize / 24 frames).
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CMP3Scanner final : public CFamilyScanner {
public:
    static constexpr uint64_t kMaxSize = 512ull << 20;
    static constexpr int kMinFrames = 4;

    // Length of the frame whose 4-byte header is `h`, or 0 for an invalid header.
    static uint32_t FrameLength(uint32_t h);

protected:
    uint64_t Walk(std::span<const uint8_t> sector) override;
};

} // namespace kestrin
