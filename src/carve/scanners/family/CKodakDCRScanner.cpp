#include "carve/scanners/family/CKodakDCRScanner.h"

namespace kestrin {

bool CKodakDCRScanner::Accepts(const TiffFacts& f) const {
    return !f.dng && IsKodak(f) && (ModelHas(f, "DCS") || ModelHas(f, "ProBack"));
}

} // namespace kestrin
