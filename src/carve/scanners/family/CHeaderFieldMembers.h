#pragma once
// The members whose size is a field of the first sector, taken as it stands (capped for some),
// and those without a layout to walk: no structure is read beyond the hit sector. Every member is
// one row of the table in CHeaderFieldMembers.cpp: its acceptance test and its size rule, both on
// the hit sector and the record's fixed size.
#include <vector>

#include "carve/scanners/family/CFamilyScanner.h"
#include "carve/scanners/family/FamilyMember.h"

namespace kestrin {

enum class HeaderFieldMember { BMP, CAB, SevenZip, RA, SWF, PST, OST, QBB, QBW };

bool HeaderFieldMemberAccepts(HeaderFieldMember member, std::span<const uint8_t> sector, uint64_t fixedSize);
uint64_t HeaderFieldMemberSize(HeaderFieldMember member, std::span<const uint8_t> sector, uint64_t fixedSize);
std::vector<FamilyMember> HeaderFieldMembers();

template <HeaderFieldMember M>
class CHeaderFieldMemberScanner final : public CFamilyScanner {
public:
    int Verify(uint64_t, std::span<const uint8_t> sector) override {
        return HeaderFieldMemberAccepts(M, sector, FixedSize()) ? 1 : 0;
    }
    uint64_t FindFileSize(uint64_t, std::span<const uint8_t> sector) override {
        return HeaderFieldMemberSize(M, sector, FixedSize());
    }
};

using CBMPScanner = CHeaderFieldMemberScanner<HeaderFieldMember::BMP>;
using CCABScanner = CHeaderFieldMemberScanner<HeaderFieldMember::CAB>;
using C7zScanner = CHeaderFieldMemberScanner<HeaderFieldMember::SevenZip>;
using CRaScanner = CHeaderFieldMemberScanner<HeaderFieldMember::RA>;
using CSWFScanner = CHeaderFieldMemberScanner<HeaderFieldMember::SWF>;
using CPSTScanner = CHeaderFieldMemberScanner<HeaderFieldMember::PST>;
using COSTScanner = CHeaderFieldMemberScanner<HeaderFieldMember::OST>;
using CQBBScanner = CHeaderFieldMemberScanner<HeaderFieldMember::QBB>;
using CQBWScanner = CHeaderFieldMemberScanner<HeaderFieldMember::QBW>;

} // namespace kestrin
