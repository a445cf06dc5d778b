#include "carve/scanners/family/CSonyARWScanner.h"

namespace kestrin {

bool CSonyARWScanner::Accepts(const TiffFacts& f) const {
    return !f.dng && MakeIs(f, "SONY") && !IsSr2(f) && !IsSrf(f);
}

} // namespace kestrin
