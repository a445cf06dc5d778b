#include "carve/scanners/family/CAviScanner.h"

namespace kestrin {

bool CAviScanner::Accepts(std::span<const uint8_t> head) const {
    return Contains(head, {"hdrl"});
}

} // namespace kestrin
