#include "carve/scanners/family/CQBBScanner.h"

namespace kestrin {

int CQBBScanner::Verify(uint64_t, std::span<const uint8_t>) {
    return FixedSize() ? 1 : 0;
}

uint64_t CQBBScanner::FindFileSize(uint64_t, std::span<const uint8_t>) {
    return FixedSize();
}

} // namespace kestrin
