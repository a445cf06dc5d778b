#pragma once
// The zip-based members (zip archives and the Office Open XML documents): every member is the
// shared zip walk plus one row of the table in CZipMembers.cpp, which names the part folder that
// makes an archive the member's own.
#include <vector>

#include "carve/scanners/family/CZipFamilyScanner.h"
#include "carve/scanners/family/FamilyMember.h"

namespace kestrin {

enum class ZipMember { Zip, DOCX, XLSX, PPTX };

std::string_view ZipMemberPartPrefix(ZipMember member);
std::vector<FamilyMember> ZipMembers();

template <ZipMember M>
class CZipMemberScanner final : public CZipFamilyScanner {
public:
    CZipMemberScanner() : CZipFamilyScanner(ZipMemberPartPrefix(M)) {}
};

using CZipScanner = CZipMemberScanner<ZipMember::Zip>;
using CDOCXScanner = CZipMemberScanner<ZipMember::DOCX>;
using CXLSXScanner = CZipMemberScanner<ZipMember::XLSX>;
using CPPTXScanner = CZipMemberScanner<ZipMember::PPTX>;

} // namespace kestrin
