#include "carve/scanners/family/CKodakDC25Scanner.h"

namespace kestrin {

bool CKodakDC25Scanner::Accepts(const TiffFacts& f) const {
    return !f.dng && IsKodak(f) && ModelHas(f, "DC25");
}

} // namespace kestrin
