#include "carve/scanners/family/FamilyMember.h"

#include "carve/scanners/family/CAsfMembers.h"
#include "carve/scanners/family/CHeaderFieldMembers.h"
#include "carve/scanners/family/CInDesignMembers.h"
#include "carve/scanners/family/CIsoMediaMembers.h"
#include "carve/scanners/family/CRiffMembers.h"
#include "carve/scanners/family/CTiffMembers.h"
#include "carve/scanners/family/CTransportStreamMembers.h"
#include "carve/scanners/family/CZipMembers.h"

namespace kestrin {

std::vector<FamilyMember> FamilyMembers() {
    std::vector<FamilyMember> all;
    for (auto table : {TiffMembers, IsoMediaMembers, RiffMembers, AsfMembers, ZipMembers, InDesignMembers,
                       TransportStreamMembers, HeaderFieldMembers}) {
        auto members = table();
        all.insert(all.end(), members.begin(), members.end());
    }
    return all;
}

} // namespace kestrin
