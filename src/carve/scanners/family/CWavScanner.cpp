#include "carve/scanners/family/CWavScanner.h"

#include <algorithm>

namespace kestrin {

bool CWavScanner::Accepts(std::span<const uint8_t> head) const {
    return Contains(head.first(std::min<size_t>(head.size(), 1024)), {"fmt "});
}

} // namespace kestrin
