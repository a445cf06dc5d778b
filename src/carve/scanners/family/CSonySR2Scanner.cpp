#include "carve/scanners/family/CSonySR2Scanner.h"

namespace kestrin {

bool CSonySR2Scanner::Accepts(const TiffFacts& f) const {
    return !f.dng && MakeIs(f, "SONY") && IsSr2(f);
}

} // namespace kestrin
