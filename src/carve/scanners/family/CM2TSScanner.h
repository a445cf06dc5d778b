#pragma once
// MPEG transport stream of 192-byte packets: a 4-byte time code, then the 188-byte packet with
// its sync byte.
#include "carve/scanners/family/CTransportStreamScanner.h"

namespace kestrin {

class CM2TSScanner final : public CTransportStreamScanner {
public:
    CM2TSScanner() : CTransportStreamScanner(192, 4) {}
};

} // namespace kestrin
