#pragma once
// Excel workbooks in the compound file container: proven by the "Workbook" stream.
#include "carve/scanners/CCompoundScanner.h"

namespace kestrin {

class CXLSScanner final : public CCompoundScanner {
public:
    CXLSScanner() : CCompoundScanner(1) {}
};

} // namespace kestrin
