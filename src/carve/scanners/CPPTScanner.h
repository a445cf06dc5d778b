#pragma once
// PowerPoint presentations in the compound file container: proven by the "PowerPoint Document" stream.
#include "carve/scanners/CCompoundScanner.h"

namespace kestrin {

class CPPTScanner final : public CCompoundScanner {
public:
    CPPTScanner() : CCompoundScanner(2) {}
};

} // namespace kestrin
