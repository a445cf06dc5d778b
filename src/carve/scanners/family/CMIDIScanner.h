#pragma once
// Standard MIDI file: the "MThd" chunk (length at least 6) with its track count, then that many
// chunks ("MTrk" or any other four-letter chunk), each a big-endian length and its data. The
// size is the end of the last track.
//
// Bounds: the track count of the header (at most 65535 chunks) and kMaxSize bytes.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CMIDIScanner final : public CFamilyScanner {
public:
    static constexpr uint64_t kMaxSize = 64ull << 20;

protected:
    uint64_t Walk(std::span<const uint8_t> sector) override;
};

} // namespace kestrin
