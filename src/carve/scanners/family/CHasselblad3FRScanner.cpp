#include "carve/scanners/family/CHasselblad3FRScanner.h"

namespace kestrin {

bool CHasselblad3FRScanner::Accepts(const TiffFacts& f) const {
    return !f.dng && MakeIs(f, "Hasselblad");
}

} // namespace kestrin
