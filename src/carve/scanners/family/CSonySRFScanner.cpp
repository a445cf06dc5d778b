#include "carve/scanners/family/CSonySRFScanner.h"

namespace kestrin {

bool CSonySRFScanner::Accepts(const TiffFacts& f) const {
    return !f.dng && MakeIs(f, "SONY") && IsSrf(f);
}

} // namespace kestrin
