#include "carve/scanners/family/CMovScanner.h"

namespace kestrin {

bool CMovScanner::AcceptsBrands(std::span<const uint8_t> sector) const {
    return MajorBrandIs(sector, "qt  ");
}

} // namespace kestrin
