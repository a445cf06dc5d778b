#pragma once
// The MPEG transport stream members: every member is the shared packet walk plus one row of the
// table in CTransportStreamMembers.cpp: 188-byte packets with the sync byte first, or 192-byte
// packets whose 4-byte time code stands before the sync byte.
#include <vector>

#include "carve/scanners/family/CTransportStreamScanner.h"
#include "carve/scanners/family/FamilyMember.h"

namespace kestrin {

enum class TransportStreamMember { MTS, M2TS };

uint32_t TransportStreamPacketSize(TransportStreamMember member);
uint32_t TransportStreamSyncOffset(TransportStreamMember member);
std::vector<FamilyMember> TransportStreamMembers();

template <TransportStreamMember M>
class CTransportStreamMemberScanner final : public CTransportStreamScanner {
public:
    CTransportStreamMemberScanner()
        : CTransportStreamScanner(TransportStreamPacketSize(M), TransportStreamSyncOffset(M)) {}
};

using CMTSScanner = CTransportStreamMemberScanner<TransportStreamMember::MTS>;
using CM2TSScanner = CTransportStreamMemberScanner<TransportStreamMember::M2TS>;

} // namespace kestrin
