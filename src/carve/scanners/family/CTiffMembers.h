#pragma once
// TIFF and the TIFF-based camera raws: every member is the shared directory walk plus one row of
// the table in CTiffMembers.cpp, which says which files the member takes (from the maker, model
// and raw markers the walk gathered) and whether the largest JPEG referenced is reported as its
// embedded preview.
#include <vector>

#include "carve/scanners/family/CTiffWalkScanner.h"
#include "carve/scanners/family/FamilyMember.h"

namespace kestrin {

enum class TiffMember {
    Tiff,
    CanonCR2,
    DNG,
    Hasselblad3FR,
    KodakDC25,
    KodakDCR,
    KodakKDC,
    NikonNEF,
    NikonNRW,
    PentaxPEF,
    SonyARW,
    SonySR2,
    SonySRF,
    EpsonERF,
    SamsungSRW,
    OlympusORF,
    LeicaRAW,
    PanasonicRAW,
};

bool TiffMemberAccepts(TiffMember member, const TiffFacts& facts);
bool TiffMemberReportsEmbedded(TiffMember member);
std::vector<FamilyMember> TiffMembers();

template <TiffMember M>
class CTiffMemberScanner final : public CTiffWalkScanner {
public:
    CTiffMemberScanner() : CTiffWalkScanner(TiffMemberReportsEmbedded(M)) {}

protected:
    bool Accepts(const TiffFacts& facts) const override { return TiffMemberAccepts(M, facts); }
};

using CTiffScanner = CTiffMemberScanner<TiffMember::Tiff>;
using CCanonCR2Scanner = CTiffMemberScanner<TiffMember::CanonCR2>;
using CDNGScanner = CTiffMemberScanner<TiffMember::DNG>;
using CHasselblad3FRScanner = CTiffMemberScanner<TiffMember::Hasselblad3FR>;
using CKodakDC25Scanner = CTiffMemberScanner<TiffMember::KodakDC25>;
using CKodakDCRScanner = CTiffMemberScanner<TiffMember::KodakDCR>;
using CKodakKDCScanner = CTiffMemberScanner<TiffMember::KodakKDC>;
using CNikonNEFScanner = CTiffMemberScanner<TiffMember::NikonNEF>;
using CNikonNRWScanner = CTiffMemberScanner<TiffMember::NikonNRW>;
using CPentaxPEFScanner = CTiffMemberScanner<TiffMember::PentaxPEF>;
using CSonyARWScanner = CTiffMemberScanner<TiffMember::SonyARW>;
using CSonySR2Scanner = CTiffMemberScanner<TiffMember::SonySR2>;
using CSonySRFScanner = CTiffMemberScanner<TiffMember::SonySRF>;
using CEpsonERFScanner = CTiffMemberScanner<TiffMember::EpsonERF>;
using CSamsungSRWScanner = CTiffMemberScanner<TiffMember::SamsungSRW>;
using COlympusORFScanner = CTiffMemberScanner<TiffMember::OlympusORF>;
using CLeicaRAWScanner = CTiffMemberScanner<TiffMember::LeicaRAW>;
using CPansonicRAWScanner = CTiffMemberScanner<TiffMember::PanasonicRAW>;

} // namespace kestrin
