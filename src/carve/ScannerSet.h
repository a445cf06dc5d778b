#pragma once
// The scanners of one signature scan, built from the ticked rows in row order. One row can give
// two scanners (the first inserted is asked first); a row whose class does not exist gives none.
#include <memory>
#include <vector>

#include "carve/CScanner.h"
#include "carve/SignatureRecord.h"

namespace kestrin {

struct ScannerEntry {
    const SignatureRecord* record;
    std::unique_ptr<CScanner> scanner;
};
using ScannerSet = std::vector<ScannerEntry>;

// Scanners for `rows` (which must outlive the set), in row order.
ScannerSet BuildScannerSet(const std::vector<SignatureRecord>& rows);
// Every type id the class table knows (also those whose class makes no scanner yet).
std::vector<uint32_t> KnownTypeIds();
// The scanners the class table makes for one record (none, one, or two), SetSignature done.
std::vector<std::unique_ptr<CScanner>> MakeScanners(const SignatureRecord& record);

} // namespace kestrin
