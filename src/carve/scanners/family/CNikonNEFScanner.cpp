#include "carve/scanners/family/CNikonNEFScanner.h"

namespace kestrin {

bool CNikonNEFScanner::Accepts(const TiffFacts& f) const {
    return !f.dng && MakeIs(f, "NIKON") && !ModelHas(f, "COOLPIX");
}

} // namespace kestrin
