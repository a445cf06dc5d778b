#include "carve/scanners/family/CNikonNRWScanner.h"

namespace kestrin {

bool CNikonNRWScanner::Accepts(const TiffFacts& f) const {
    return !f.dng && MakeIs(f, "NIKON") && ModelHas(f, "COOLPIX");
}

} // namespace kestrin
