#include "carve/scanners/family/CM4VScanner.h"

namespace kestrin {

bool CM4VScanner::AcceptsBrands(std::span<const uint8_t> sector) const {
    return MajorBrandIs(sector, "M4V");
}

} // namespace kestrin
