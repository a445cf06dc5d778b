#pragma once
// Word documents in the compound file container: proven by the "WordDocument" stream.
#include "carve/scanners/CCompoundScanner.h"

namespace kestrin {

class CDOCScanner final : public CCompoundScanner {
public:
    CDOCScanner() : CCompoundScanner(0) {}
};

} // namespace kestrin
