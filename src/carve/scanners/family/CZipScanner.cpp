#include "carve/scanners/family/CZipScanner.h"

namespace kestrin {

void CZipScanner::SeePart(std::string_view) {}

void CZipScanner::Reset() {}

bool CZipScanner::Accepted() const {
    return true;
}

} // namespace kestrin
