#include "carve/scanners/family/CPentaxPEFScanner.h"

namespace kestrin {

bool CPentaxPEFScanner::Accepts(const TiffFacts& f) const {
    return !f.dng && (MakeIs(f, "PENTAX") || MakeIs(f, "RICOH")) && f.rawData;
}

} // namespace kestrin
