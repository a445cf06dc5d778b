#include "carve/scanners/family/CZipMembers.h"

#include "carve/SignatureList.h"

namespace kestrin {

namespace {

using namespace std::string_view_literals;

struct ZipRow {
    ZipMember member;
    FamilyMember facts;
    std::string_view partPrefix; // empty: any archive the walk gets through
};

constexpr auto kLocalHeader = "PK\3\4"sv;

constexpr ZipRow kRows[] = {
    {ZipMember::Zip, {55, ".zip", kLocalHeader, 0, kCategoryContainer, MakeMember<CZipScanner>}, ""},
    {ZipMember::DOCX, {95, ".docx", kLocalHeader, 0, kCategoryDocument, MakeMember<CDOCXScanner>}, "word/"},
    {ZipMember::XLSX, {95, ".xlsx", kLocalHeader, 0, kCategoryDocument, MakeMember<CXLSXScanner>}, "xl/"},
    {ZipMember::PPTX, {95, ".pptx", kLocalHeader, 0, kCategoryDocument, MakeMember<CPPTXScanner>}, "ppt/"},
};
static_assert(InMemberOrder(kRows));

} // namespace

std::string_view ZipMemberPartPrefix(ZipMember member) {
    return kRows[size_t(member)].partPrefix;
}

std::vector<FamilyMember> ZipMembers() {
    std::vector<FamilyMember> out = FactsOf(kRows);
    // A spanned archive's first marker is taken by the same walk.
    out.push_back({56, ".zip", "PK\7\x08"sv, 0, kCategoryContainer, MakeMember<CZipScanner>});
    return out;
}

} // namespace kestrin
