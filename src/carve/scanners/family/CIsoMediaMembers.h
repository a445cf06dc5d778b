#pragma once
// The ISO base media members (QuickTime, MPEG-4 video, audio, books and iTunes video, 3GPP): every
// member is the shared box walk plus one row of the table in CIsoMediaMembers.cpp, which says
// which brands of the first sector make the file the member's own.
#include <vector>

#include "carve/scanners/family/CIsoMediaScanner.h"
#include "carve/scanners/family/FamilyMember.h"

namespace kestrin {

enum class IsoMediaMember { Mov, MP4, M4A, M4B, M4V, ThreeGP };

bool IsoMediaMemberAccepts(IsoMediaMember member, std::span<const uint8_t> sector);
std::vector<FamilyMember> IsoMediaMembers();

template <IsoMediaMember M>
class CIsoMediaMemberScanner final : public CIsoMediaScanner {
protected:
    bool AcceptsBrands(std::span<const uint8_t> sector) const override { return IsoMediaMemberAccepts(M, sector); }
};

using CMovScanner = CIsoMediaMemberScanner<IsoMediaMember::Mov>;
using CMP4Scanner = CIsoMediaMemberScanner<IsoMediaMember::MP4>;
using CM4AScanner = CIsoMediaMemberScanner<IsoMediaMember::M4A>;
using CM4BScanner = CIsoMediaMemberScanner<IsoMediaMember::M4B>;
using CM4VScanner = CIsoMediaMemberScanner<IsoMediaMember::M4V>;
using C3GPScanner = CIsoMediaMemberScanner<IsoMediaMember::ThreeGP>;

} // namespace kestrin
