#pragma once
// InDesign template (the document layout; a document of the same header is taken by the document
// row first). Size from the shared page walk.
#include "carve/scanners/family/CInDesignScanner.h"

namespace kestrin {

class CIndtScanner final : public CInDesignScanner {
public:
    CIndtScanner() : CInDesignScanner("DOCUMENT") {}
};

} // namespace kestrin
