#pragma once
// RealMedia: the ".RMF" file header and the chunks that follow it (PROP, MDPR, CONT, DATA,
// INDX, metadata); each chunk is a four-letter id, a big-endian 32-bit length that counts the
// whole chunk, and a 16-bit version. The size is the end of the last chunk in the run; a data
// chunk whose packets end before its claimed length ends the file there.
//
// Bounds: at most kMaxChunks chunks and kMaxSize bytes.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CRmScanner final : public CFamilyScanner {
public:
    static constexpr int kMaxChunks = 100000;
    static constexpr uint64_t kMaxSize = 1ull << 32;

protected:
    uint64_t Walk(std::span<const uint8_t> sector) override;

private:
    uint64_t PacketsEnd(uint64_t at, uint64_t length);
};

} // namespace kestrin
