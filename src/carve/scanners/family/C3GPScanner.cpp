#include "carve/scanners/family/C3GPScanner.h"

namespace kestrin {

bool C3GPScanner::AcceptsBrands(std::span<const uint8_t> sector) const {
    return MajorBrandIs(sector, "3gp") || MajorBrandIs(sector, "3g2");
}

} // namespace kestrin
