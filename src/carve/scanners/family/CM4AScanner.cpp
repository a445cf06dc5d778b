#include "carve/scanners/family/CM4AScanner.h"

namespace kestrin {

bool CM4AScanner::AcceptsBrands(std::span<const uint8_t> sector) const {
    return MajorBrandIs(sector, "M4A ");
}

} // namespace kestrin
