#include "carve/scanners/family/CDNGScanner.h"

namespace kestrin {

bool CDNGScanner::Accepts(const TiffFacts& f) const {
    return f.dng;
}

} // namespace kestrin
