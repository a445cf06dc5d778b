#include "carve/scanners/family/CXVIDScanner.h"

namespace kestrin {

bool CXVIDScanner::Accepts(std::span<const uint8_t> head) const {
    return Contains(head, {"XVID", "xvid"});
}

} // namespace kestrin
