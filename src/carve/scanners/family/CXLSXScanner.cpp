#include "carve/scanners/family/CXLSXScanner.h"

namespace kestrin {

void CXLSXScanner::SeePart(std::string_view name) {
    if (name.substr(0, 3) == "xl/") m_seen = true;
}

void CXLSXScanner::Reset() {
    m_seen = false;
}

bool CXLSXScanner::Accepted() const {
    return m_seen;
}

} // namespace kestrin
