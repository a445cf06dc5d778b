#include "carve/scanners/family/CTiffScanner.h"

namespace kestrin {

bool CTiffScanner::Accepts(const TiffFacts& f) const {
    return !IsRawFile(f);
}

} // namespace kestrin
