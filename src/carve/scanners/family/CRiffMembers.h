#pragma once
// The RIFF members (AVI, DivX and XviD AVI, Wave): every member is the shared RIFF walk plus one
// row of the table in CRiffMembers.cpp: the form type, whether AVIX continuation chunks are added,
// and the tags one of which the start of the file must hold.
#include <vector>

#include "carve/scanners/family/CRiffScanner.h"
#include "carve/scanners/family/FamilyMember.h"

namespace kestrin {

enum class RiffMember { Avi, DIVX, XVID, Wav };

const char* RiffMemberForm(RiffMember member);
bool RiffMemberContinues(RiffMember member);
bool RiffMemberAccepts(RiffMember member, std::span<const uint8_t> head);
std::vector<FamilyMember> RiffMembers();

template <RiffMember M>
class CRiffMemberScanner final : public CRiffScanner {
public:
    CRiffMemberScanner() : CRiffScanner(RiffMemberForm(M), RiffMemberContinues(M)) {}

protected:
    bool Accepts(std::span<const uint8_t> head) const override { return RiffMemberAccepts(M, head); }
};

using CAviScanner = CRiffMemberScanner<RiffMember::Avi>;
using CDIVXScanner = CRiffMemberScanner<RiffMember::DIVX>;
using CXVIDScanner = CRiffMemberScanner<RiffMember::XVID>;
using CWavScanner = CRiffMemberScanner<RiffMember::Wav>;

} // namespace kestrin
