#pragma once
// The InDesign members (document, book, template): every member is the shared page walk plus one
// row of the table in CInDesignMembers.cpp, which names the kind its master page carries. A
// template has the document's kind (a document of the same header is taken by the document row
// first).
#include <vector>

#include "carve/scanners/family/CInDesignScanner.h"
#include "carve/scanners/family/FamilyMember.h"

namespace kestrin {

enum class InDesignMember { Document, Book, Template };

const char* InDesignMemberKind(InDesignMember member);
std::vector<FamilyMember> InDesignMembers();

template <InDesignMember M>
class CInDesignMemberScanner final : public CInDesignScanner {
public:
    CInDesignMemberScanner() : CInDesignScanner(InDesignMemberKind(M)) {}
};

using CInddScanner = CInDesignMemberScanner<InDesignMember::Document>;
using CIndbScanner = CInDesignMemberScanner<InDesignMember::Book>;
using CIndtScanner = CInDesignMemberScanner<InDesignMember::Template>;

} // namespace kestrin
