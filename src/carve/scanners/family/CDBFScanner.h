#pragma once
// dBASE table (DBF): a known version byte, a plausible last-update date, the record count at 4,
// the header length at 8 and the record length at 10; the size is the header plus the records,
// plus the end-of-file byte 0x1A when it is there.
// No type id selects this class; it never takes part in a scan.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CDBFScanner final : public CFamilyScanner {
public:
    static constexpr uint64_t kMaxSize = 2ull << 30;

protected:
    uint64_t Walk(std::span<const uint8_t> sector) override;
};

} // namespace kestrin
