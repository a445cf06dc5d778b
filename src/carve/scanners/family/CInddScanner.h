#pragma once
// InDesign document. Size from the shared page walk.
#include "carve/scanners/family/CInDesignScanner.h"

namespace kestrin {

class CInddScanner final : public CInDesignScanner {
public:
    CInddScanner() : CInDesignScanner("DOCUMENT") {}
};

} // namespace kestrin
