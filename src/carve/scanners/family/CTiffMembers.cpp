#include "carve/scanners/family/CTiffMembers.h"

#include <string_view>

#include "carve/SignatureList.h"

namespace kestrin {

namespace {

using namespace std::string_view_literals;
using W = CTiffWalkScanner;

struct TiffRow {
    TiffMember member;
    FamilyMember facts;
    bool reportsEmbedded; // the largest JPEG referenced is the embedded preview
    bool (*accepts)(const TiffFacts&);
};

bool IsKodak(const TiffFacts& f) { return W::MakeIs(f, "EASTMAN KODAK") || W::MakeIs(f, "KODAK"); }
bool IsSonySr2(const TiffFacts& f) { return W::ModelHas(f, "DSC-R1"); }
bool IsSonySrf(const TiffFacts& f) { return W::ModelHas(f, "DSC-F828") || W::ModelHas(f, "DSC-V3"); }

constexpr auto kIntel = "II*\0"sv;
constexpr auto kMotorola = "MM\0*"sv;
constexpr uint8_t kPicture = kCategoryPicture;

constexpr TiffRow kRows[] = {
    // TIFF image: any TIFF that is not a camera raw file.
    {TiffMember::Tiff, {10, ".tif", kIntel, 0, kPicture, MakeMember<CTiffScanner>}, false,
     [](const TiffFacts& f) { return !W::IsRawFile(f); }},
    // Canon raw image (CR2): the "CR" marker at offset 8.
    {TiffMember::CanonCR2, {211, ".cr2", "II*\0\x10\0\0\0CR"sv, 0, kPicture, MakeMember<CCanonCR2Scanner>}, true,
     [](const TiffFacts& f) { return f.canonMarker && f.magic == TiffFacts::kClassicMagic; }},
    // Digital negative: a DNG version tag.
    {TiffMember::DNG, {212, ".dng", kIntel, 0, kPicture, MakeMember<CDNGScanner>}, true,
     [](const TiffFacts& f) { return f.dng; }},
    // Hasselblad raw image (3FR).
    {TiffMember::Hasselblad3FR, {212, ".3fr", kIntel, 0, kPicture, MakeMember<CHasselblad3FRScanner>}, true,
     [](const TiffFacts& f) { return !f.dng && W::MakeIs(f, "Hasselblad"); }},
    // Kodak DC25 raw image (K25).
    {TiffMember::KodakDC25, {212, ".k25", kIntel, 0, kPicture, MakeMember<CKodakDC25Scanner>}, true,
     [](const TiffFacts& f) { return !f.dng && IsKodak(f) && W::ModelHas(f, "DC25"); }},
    // Kodak professional raw image (DCR): a DCS camera or ProBack; no embedded item.
    {TiffMember::KodakDCR, {212, ".dcr", kIntel, 0, kPicture, MakeMember<CKodakDCRScanner>}, false,
     [](const TiffFacts& f) { return !f.dng && IsKodak(f) && (W::ModelHas(f, "DCS") || W::ModelHas(f, "ProBack")); }},
    // Kodak raw image (KDC): any other Kodak camera.
    {TiffMember::KodakKDC, {212, ".kdc", kIntel, 0, kPicture, MakeMember<CKodakKDCScanner>}, true,
     [](const TiffFacts& f) {
         return !f.dng && IsKodak(f) && !W::ModelHas(f, "DC25") && !W::ModelHas(f, "DCS") &&
                !W::ModelHas(f, "ProBack");
     }},
    // Nikon raw image (NEF): a Nikon other than a Coolpix.
    {TiffMember::NikonNEF, {211, ".nef", kMotorola, 0, kPicture, MakeMember<CNikonNEFScanner>}, true,
     [](const TiffFacts& f) { return !f.dng && W::MakeIs(f, "NIKON") && !W::ModelHas(f, "COOLPIX"); }},
    // Nikon Coolpix raw image (NRW).
    {TiffMember::NikonNRW, {211, ".nrw", kIntel, 0, kPicture, MakeMember<CNikonNRWScanner>}, true,
     [](const TiffFacts& f) { return !f.dng && W::MakeIs(f, "NIKON") && W::ModelHas(f, "COOLPIX"); }},
    // Pentax raw image (PEF): a Pentax or Ricoh camera with raw data.
    {TiffMember::PentaxPEF, {211, ".pef", kMotorola, 0, kPicture, MakeMember<CPentaxPEFScanner>}, true,
     [](const TiffFacts& f) { return !f.dng && (W::MakeIs(f, "PENTAX") || W::MakeIs(f, "RICOH")) && f.rawData; }},
    // Sony raw image (ARW): a Sony that is neither SR2 nor SRF.
    {TiffMember::SonyARW, {211, ".arw", kIntel, 0, kPicture, MakeMember<CSonyARWScanner>}, true,
     [](const TiffFacts& f) { return !f.dng && W::MakeIs(f, "SONY") && !IsSonySr2(f) && !IsSonySrf(f); }},
    // Sony raw image (SR2): the format of the DSC-R1.
    {TiffMember::SonySR2, {211, ".sr2", kIntel, 0, kPicture, MakeMember<CSonySR2Scanner>}, true,
     [](const TiffFacts& f) { return !f.dng && W::MakeIs(f, "SONY") && IsSonySr2(f); }},
    // Sony raw image (SRF): the format of the DSC-F828 and DSC-V3.
    {TiffMember::SonySRF, {211, ".srf", kIntel, 0, kPicture, MakeMember<CSonySRFScanner>}, true,
     [](const TiffFacts& f) { return !f.dng && W::MakeIs(f, "SONY") && IsSonySrf(f); }},
    // Epson raw image (ERF): made by Seiko Epson; no embedded item.
    {TiffMember::EpsonERF, {211, ".erf", kIntel, 0, kPicture, MakeMember<CEpsonERFScanner>}, false,
     [](const TiffFacts& f) { return !f.dng && W::MakeIs(f, "SEIKO EPSON"); }},
    // Samsung raw image (SRW): a Samsung that holds raw sensor data.
    {TiffMember::SamsungSRW, {211, ".srw", kIntel, 0, kPicture, MakeMember<CSamsungSRWScanner>}, true,
     [](const TiffFacts& f) { return !f.dng && W::MakeIs(f, "SAMSUNG") && f.rawData; }},
    // Olympus raw image (ORF): the Olympus variants of the header, or an Olympus TIFF with raw data.
    {TiffMember::OlympusORF, {208, ".orf", "IIRO"sv, 0, kPicture, MakeMember<COlympusORFScanner>}, true,
     [](const TiffFacts& f) {
         return f.magic == TiffFacts::kOlympusMagic || f.magic == TiffFacts::kOlympusSrMagic ||
                (f.magic == TiffFacts::kClassicMagic && W::MakeIs(f, "OLYMPUS") && f.rawData);
     }},
    // Leica raw image (RW2 layout): the Panasonic header variant, made by Leica.
    {TiffMember::LeicaRAW, {214, ".rw2", "IIU\0"sv, 0, kPicture, MakeMember<CLeicaRAWScanner>}, true,
     [](const TiffFacts& f) { return f.magic == TiffFacts::kPanasonicMagic && W::MakeIs(f, "LEICA"); }},
    // Panasonic raw image (RW2): the Panasonic header variant, any other maker.
    {TiffMember::PanasonicRAW, {214, ".rw2", "IIU\0"sv, 0, kPicture, MakeMember<CPansonicRAWScanner>}, true,
     [](const TiffFacts& f) { return f.magic == TiffFacts::kPanasonicMagic && !W::MakeIs(f, "LEICA"); }},
};
static_assert(InMemberOrder(kRows));

} // namespace

bool TiffMemberAccepts(TiffMember member, const TiffFacts& facts) {
    return kRows[size_t(member)].accepts(facts);
}

bool TiffMemberReportsEmbedded(TiffMember member) {
    return kRows[size_t(member)].reportsEmbedded;
}

std::vector<FamilyMember> TiffMembers() {
    return FactsOf(kRows);
}

} // namespace kestrin
