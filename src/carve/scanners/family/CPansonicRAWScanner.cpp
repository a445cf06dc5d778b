#include "carve/scanners/family/CPansonicRAWScanner.h"

namespace kestrin {

bool CPansonicRAWScanner::Accepts(const TiffFacts& f) const {
    return f.magic == 0x55 && !MakeIs(f, "LEICA");
}

} // namespace kestrin
