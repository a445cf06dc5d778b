#include "carve/scanners/family/CEpsonERFScanner.h"

namespace kestrin {

bool CEpsonERFScanner::Accepts(const TiffFacts& f) const {
    return !f.dng && MakeIs(f, "SEIKO EPSON");
}

} // namespace kestrin
