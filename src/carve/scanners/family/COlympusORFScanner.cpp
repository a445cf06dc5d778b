#include "carve/scanners/family/COlympusORFScanner.h"

namespace kestrin {

bool COlympusORFScanner::Accepts(const TiffFacts& f) const {
    return f.magic == 0x4F52 || f.magic == 0x5352 || (f.magic == 42 && MakeIs(f, "OLYMPUS") && f.rawData);
}

} // namespace kestrin
