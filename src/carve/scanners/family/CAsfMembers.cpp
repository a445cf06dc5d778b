#include "carve/scanners/family/CAsfMembers.h"

#include <string_view>

#include "carve/SignatureList.h"

namespace kestrin {

namespace {

using namespace std::string_view_literals;

struct AsfRow {
    AsfMember member;
    FamilyMember facts; // type id 0: no record selects the class
    bool (*accepts)(bool hasAudio, bool hasVideo);
};

// The header object's GUID as it is stored.
constexpr auto kHeaderObject = "\x30\x26\xB2\x75\x8E\x66\xCF\x11\xA6\xD9\x00\xAA\x00\x62\xCE\x6C"sv;
constexpr uint8_t kMedia = kCategoryAudioVideo;

constexpr AsfRow kRows[] = {
    // Any ASF file.
    {AsfMember::Asf, {0, ".asf", kHeaderObject, 0, kMedia, MakeMember<CASFScanner>}, [](bool, bool) { return true; }},
    // Windows Media audio: audio streams and no video stream.
    {AsfMember::WMA, {0, ".wma", kHeaderObject, 0, kMedia, MakeMember<CWMAScanner>},
     [](bool audio, bool video) { return audio && !video; }},
    // Windows Media video: a video stream.
    {AsfMember::WMV, {0, ".wmv", kHeaderObject, 0, kMedia, MakeMember<CWMVScanner>},
     [](bool, bool video) { return video; }},
};
static_assert(InMemberOrder(kRows));

} // namespace

bool AsfMemberAccepts(AsfMember member, bool hasAudio, bool hasVideo) {
    return kRows[size_t(member)].accepts(hasAudio, hasVideo);
}

std::vector<FamilyMember> AsfMembers() {
    return FactsOf(kRows);
}

} // namespace kestrin
