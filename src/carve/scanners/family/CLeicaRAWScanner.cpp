#include "carve/scanners/family/CLeicaRAWScanner.h"

namespace kestrin {

bool CLeicaRAWScanner::Accepts(const TiffFacts& f) const {
    return f.magic == 0x55 && MakeIs(f, "LEICA");
}

} // namespace kestrin
