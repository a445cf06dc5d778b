#include "carve/scanners/family/CTransportStreamMembers.h"

#include <string_view>

#include "carve/SignatureList.h"

namespace kestrin {

namespace {

using namespace std::string_view_literals;

struct TransportStreamRow {
    TransportStreamMember member;
    FamilyMember facts;
    uint32_t packetSize;
    uint32_t syncOffset; // of the sync byte within each packet
};

constexpr auto kSync = "\x47"sv;
constexpr uint8_t kMedia = kCategoryAudioVideo;

constexpr TransportStreamRow kRows[] = {
    {TransportStreamMember::MTS, {278, ".mts", kSync, 0, kMedia, MakeMember<CMTSScanner>}, 188, 0},
    {TransportStreamMember::M2TS, {279, ".m2ts", kSync, 4, kMedia, MakeMember<CM2TSScanner>}, 192, 4},
};
static_assert(InMemberOrder(kRows));

} // namespace

uint32_t TransportStreamPacketSize(TransportStreamMember member) {
    return kRows[size_t(member)].packetSize;
}

uint32_t TransportStreamSyncOffset(TransportStreamMember member) {
    return kRows[size_t(member)].syncOffset;
}

std::vector<FamilyMember> TransportStreamMembers() {
    return FactsOf(kRows);
}

} // namespace kestrin
