#include "carve/scanners/family/CRiffMembers.h"

#include <algorithm>
#include <string_view>

#include "carve/SignatureList.h"

namespace kestrin {

namespace {

using namespace std::string_view_literals;

struct RiffRow {
    RiffMember member;
    FamilyMember facts;
    const char* form;   // the form type at offset 8
    bool continuations; // "RIFF" "AVIX" chunks that follow directly are added
    bool (*accepts)(std::span<const uint8_t> head);
};

constexpr auto kRiff = "RIFF"sv;
constexpr uint8_t kMedia = kCategoryAudioVideo;
// A Wave file's format chunk stands within its first kWaveFormatReach bytes.
constexpr size_t kWaveFormatReach = 1024;

constexpr RiffRow kRows[] = {
    // AVI video: the header list "hdrl".
    {RiffMember::Avi, {4, ".avi", kRiff, 0, kMedia, MakeMember<CAviScanner>}, "AVI ", true,
     [](std::span<const uint8_t> h) { return CRiffScanner::Contains(h, {"hdrl"}); }},
    // AVI video compressed with DivX: a video stream handler of the DivX family.
    {RiffMember::DIVX, {510, ".avi", kRiff, 0, kMedia, MakeMember<CDIVXScanner>}, "AVI ", true,
     [](std::span<const uint8_t> h) {
         return CRiffScanner::Contains(h, {"DIVX", "divx", "DX50", "dx50", "DIV3", "div3", "DIV4", "div4"});
     }},
    // AVI video compressed with XviD: a video stream handler "XVID".
    {RiffMember::XVID, {511, ".avi", kRiff, 0, kMedia, MakeMember<CXVIDScanner>}, "AVI ", true,
     [](std::span<const uint8_t> h) { return CRiffScanner::Contains(h, {"XVID", "xvid"}); }},
    // Wave audio: form "WAVE" with its format chunk.
    {RiffMember::Wav, {68, ".wav", kRiff, 0, kMedia, MakeMember<CWavScanner>}, "WAVE", false,
     [](std::span<const uint8_t> h) {
         return CRiffScanner::Contains(h.first(std::min(h.size(), kWaveFormatReach)), {"fmt "});
     }},
};
static_assert(InMemberOrder(kRows));

} // namespace

const char* RiffMemberForm(RiffMember member) {
    return kRows[size_t(member)].form;
}

bool RiffMemberContinues(RiffMember member) {
    return kRows[size_t(member)].continuations;
}

bool RiffMemberAccepts(RiffMember member, std::span<const uint8_t> head) {
    return kRows[size_t(member)].accepts(head);
}

std::vector<FamilyMember> RiffMembers() {
    return FactsOf(kRows);
}

} // namespace kestrin
