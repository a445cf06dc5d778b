#include "carve/scanners/family/CCanonCR2Scanner.h"

namespace kestrin {

bool CCanonCR2Scanner::Accepts(const TiffFacts& f) const {
    return f.canonMarker && f.magic == 42;
}

} // namespace kestrin
