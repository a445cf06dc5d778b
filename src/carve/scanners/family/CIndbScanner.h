#pragma once
// InDesign book. Size from the shared page walk.
#include "carve/scanners/family/CInDesignScanner.h"

namespace kestrin {

class CIndbScanner final : public CInDesignScanner {
public:
    CIndbScanner() : CInDesignScanner("BOOKBOOK") {}
};

} // namespace kestrin
