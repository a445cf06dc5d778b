#include "carve/scanners/family/CPPTXScanner.h"

namespace kestrin {

void CPPTXScanner::SeePart(std::string_view name) {
    if (name.substr(0, 4) == "ppt/") m_seen = true;
}

void CPPTXScanner::Reset() {
    m_seen = false;
}

bool CPPTXScanner::Accepted() const {
    return m_seen;
}

} // namespace kestrin
