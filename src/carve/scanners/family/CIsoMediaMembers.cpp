#include "carve/scanners/family/CIsoMediaMembers.h"

#include <cstring>
#include <string_view>

#include "carve/SignatureList.h"

namespace kestrin {

namespace {

using namespace std::string_view_literals;
using W = CIsoMediaScanner;

struct IsoMediaRow {
    IsoMediaMember member;
    FamilyMember facts;
    bool (*accepts)(std::span<const uint8_t> sector);
};

// MPEG-4 video: the three bytes at each position 0 to 499 of the first sector are compared in
// turn: another member's brand seen first rejects, "mp4" or "avc" seen first accepts, neither
// rejects.
constexpr size_t kMp4BrandReach = 500;

bool IsMp4(std::span<const uint8_t> sector) {
    static const char* const kOthers[] = {"qt ", "3g2", "M4A", "M4B", "M4V", "3gp"};
    for (size_t at = 0; at < kMp4BrandReach && at + 3 <= sector.size(); ++at) {
        const uint8_t* p = sector.data() + at;
        for (const char* other : kOthers)
            if (std::memcmp(p, other, 3) == 0) return false;
        if (std::memcmp(p, "mp4", 3) == 0 || std::memcmp(p, "avc", 3) == 0) return true;
    }
    return false;
}

constexpr uint8_t kMedia = kCategoryAudioVideo;

constexpr IsoMediaRow kRows[] = {
    // QuickTime movie: the major brand "qt  ".
    {IsoMediaMember::Mov, {15, ".mov", "ftypqt  "sv, 4, kMedia, MakeMember<CMovScanner>},
     [](std::span<const uint8_t> s) { return W::MajorBrandIs(s, "qt  "); }},
    {IsoMediaMember::MP4, {3470, ".mp4", "ftyp"sv, 4, kMedia, MakeMember<CMP4Scanner>}, IsMp4},
    // MPEG-4 audio: the major brand "M4A ".
    {IsoMediaMember::M4A, {4134, ".m4a", "ftypM4A "sv, 4, kMedia, MakeMember<CM4AScanner>},
     [](std::span<const uint8_t> s) { return W::MajorBrandIs(s, "M4A "); }},
    // MPEG-4 audio book: the major brand "M4B ".
    {IsoMediaMember::M4B, {4234, ".m4b", "ftypM4B "sv, 4, kMedia, MakeMember<CM4BScanner>},
     [](std::span<const uint8_t> s) { return W::MajorBrandIs(s, "M4B "); }},
    // MPEG-4 video for iTunes: a major brand of the "M4V" family.
    {IsoMediaMember::M4V, {5634, ".m4v", "ftypM4V "sv, 4, kMedia, MakeMember<CM4VScanner>},
     [](std::span<const uint8_t> s) { return W::MajorBrandIs(s, "M4V"); }},
    // 3GPP and 3GPP2 multimedia: a major brand of the "3gp" or "3g2" families.
    {IsoMediaMember::ThreeGP, {3367, ".3gp", "ftyp3gp"sv, 4, kMedia, MakeMember<C3GPScanner>},
     [](std::span<const uint8_t> s) { return W::MajorBrandIs(s, "3gp") || W::MajorBrandIs(s, "3g2"); }},
};
static_assert(InMemberOrder(kRows));

} // namespace

bool IsoMediaMemberAccepts(IsoMediaMember member, std::span<const uint8_t> sector) {
    return kRows[size_t(member)].accepts(sector);
}

std::vector<FamilyMember> IsoMediaMembers() {
    return FactsOf(kRows);
}

} // namespace kestrin
