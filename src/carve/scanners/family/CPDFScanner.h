#pragma once
// PDF document: the file ends after the last "%%EOF" marker (and its line end) that the document
// still reaches. After each marker the walk looks at what follows: another body section of an
// incremental update (an object, a cross-reference section, a trailer or a comment) continues
// the document and the search goes on; anything else ends it.
//
// Bounds: markers are searched within kMaxSize bytes of the start; at most kMaxUpdates markers.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CPDFScanner final : public CFamilyScanner {
public:
    static constexpr uint64_t kMaxSize = 512ull << 20;
    static constexpr int kMaxUpdates = 10000;

protected:
    uint64_t Walk(std::span<const uint8_t> sector) override;
};

} // namespace kestrin
