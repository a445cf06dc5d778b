#include "carve/scanners/family/CDOCXScanner.h"

namespace kestrin {

void CDOCXScanner::SeePart(std::string_view name) {
    if (name.substr(0, 5) == "word/") m_seen = true;
}

void CDOCXScanner::Reset() {
    m_seen = false;
}

bool CDOCXScanner::Accepted() const {
    return m_seen;
}

} // namespace kestrin
