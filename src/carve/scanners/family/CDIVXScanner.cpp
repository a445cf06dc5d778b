#include "carve/scanners/family/CDIVXScanner.h"

namespace kestrin {

bool CDIVXScanner::Accepts(std::span<const uint8_t> head) const {
    return Contains(head, {"DIVX", "divx", "DX50", "dx50", "DIV3", "div3", "DIV4", "div4"});
}

} // namespace kestrin
