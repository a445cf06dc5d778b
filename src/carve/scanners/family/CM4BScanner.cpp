#include "carve/scanners/family/CM4BScanner.h"

namespace kestrin {

bool CM4BScanner::AcceptsBrands(std::span<const uint8_t> sector) const {
    return MajorBrandIs(sector, "M4B ");
}

} // namespace kestrin
