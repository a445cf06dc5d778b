#include "carve/scanners/family/CWMVScanner.h"

namespace kestrin {

bool CWMVScanner::Accepts(bool, bool hasVideo) const {
    return hasVideo;
}

} // namespace kestrin
