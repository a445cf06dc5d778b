#include "carve/scanners/family/CInDesignMembers.h"

#include <string_view>

#include "carve/SignatureList.h"

namespace kestrin {

namespace {

using namespace std::string_view_literals;

struct InDesignRow {
    InDesignMember member;
    FamilyMember facts;
    const char* kind; // the eight bytes of the master page's kind field
};

// The database GUID every InDesign file starts with.
constexpr auto kDatabase = "\x06\x06\xED\xF5\xD8\x1D\x46\xE5\xBD\x31\xEF\xE7\xFE\x74\xB7\x1D"sv;
constexpr uint8_t kDocument = kCategoryDocument;

constexpr InDesignRow kRows[] = {
    {InDesignMember::Document, {275, ".indd", kDatabase, 0, kDocument, MakeMember<CInddScanner>}, "DOCUMENT"},
    {InDesignMember::Book, {276, ".indb", kDatabase, 0, kDocument, MakeMember<CIndbScanner>}, "BOOKBOOK"},
    {InDesignMember::Template, {277, ".indt", kDatabase, 0, kDocument, MakeMember<CIndtScanner>}, "DOCUMENT"},
};
static_assert(InMemberOrder(kRows));

} // namespace

const char* InDesignMemberKind(InDesignMember member) {
    return kRows[size_t(member)].kind;
}

std::vector<FamilyMember> InDesignMembers() {
    return FactsOf(kRows);
}

} // namespace kestrin
