#pragma once
// Outlook offline folders: the same header as personal folders, listed as its own type.
#include "carve/scanners/family/CPSTScanner.h"

namespace kestrin {

class COSTScanner final : public CPSTScanner {};

} // namespace kestrin
