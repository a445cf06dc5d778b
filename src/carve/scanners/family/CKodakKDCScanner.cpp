#include "carve/scanners/family/CKodakKDCScanner.h"

namespace kestrin {

bool CKodakKDCScanner::Accepts(const TiffFacts& f) const {
    return !f.dng && IsKodak(f) && !ModelHas(f, "DC25") && !ModelHas(f, "DCS") && !ModelHas(f, "ProBack");
}

} // namespace kestrin
