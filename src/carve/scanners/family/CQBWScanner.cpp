#include "carve/scanners/family/CQBWScanner.h"

namespace kestrin {

int CQBWScanner::Verify(uint64_t, std::span<const uint8_t>) {
    return FixedSize() ? 1 : 0;
}

uint64_t CQBWScanner::FindFileSize(uint64_t, std::span<const uint8_t>) {
    return FixedSize();
}

} // namespace kestrin
