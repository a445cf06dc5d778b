#include "carve/scanners/family/CWMAScanner.h"

namespace kestrin {

bool CWMAScanner::Accepts(bool hasAudio, bool hasVideo) const {
    return hasAudio && !hasVideo;
}

} // namespace kestrin
