#pragma once
// The ASF members (any ASF file, Windows Media audio, Windows Media video): every member is the
// shared header walk plus one row of the table in CAsfMembers.cpp, which says from the stream
// types found whether the file is the member's own. No type id selects these classes; they never
// take part in a scan.
#include <vector>

#include "carve/scanners/family/CAsfFamilyScanner.h"
#include "carve/scanners/family/FamilyMember.h"

namespace kestrin {

enum class AsfMember { Asf, WMA, WMV };

bool AsfMemberAccepts(AsfMember member, bool hasAudio, bool hasVideo);
std::vector<FamilyMember> AsfMembers();

template <AsfMember M>
class CAsfMemberScanner final : public CAsfFamilyScanner {
protected:
    bool Accepts(bool hasAudio, bool hasVideo) const override { return AsfMemberAccepts(M, hasAudio, hasVideo); }
};

using CASFScanner = CAsfMemberScanner<AsfMember::Asf>;
using CWMAScanner = CAsfMemberScanner<AsfMember::WMA>;
using CWMVScanner = CAsfMemberScanner<AsfMember::WMV>;

} // namespace kestrin
