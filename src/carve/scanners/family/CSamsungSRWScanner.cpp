#include "carve/scanners/family/CSamsungSRWScanner.h"

namespace kestrin {

bool CSamsungSRWScanner::Accepts(const TiffFacts& f) const {
    return !f.dng && MakeIs(f, "SAMSUNG") && f.rawData;
}

} // namespace kestrin
