#pragma once
// MPEG transport stream of 188-byte packets (the sync byte first in every packet).
#include "carve/scanners/family/CTransportStreamScanner.h"

namespace kestrin {

class CMTSScanner final : public CTransportStreamScanner {
public:
    CMTSScanner() : CTransportStreamScanner(188, 0) {}
};

} // namespace kestrin
