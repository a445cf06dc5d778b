#include "carve/scanners/family/CASFScanner.h"

namespace kestrin {

bool CASFScanner::Accepts(bool, bool) const {
    return true;
}

} // namespace kestrin
