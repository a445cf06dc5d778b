#include "carve/ScannerSet.h"

#include <algorithm>
#include <initializer_list>
#include <string_view>

#include "carve/scanners/CDOCScanner.h"
#include "carve/scanners/CJpgScanner.h"
#include "carve/scanners/CPPTScanner.h"
#include "carve/scanners/CUserScanner.h"
#include "carve/scanners/CXLSScanner.h"
#include "carve/scanners/family/CAIFFScanner.h"
#include "carve/scanners/family/CAmrScanner.h"
#include "carve/scanners/family/CArjScanner.h"
#include "carve/scanners/family/CCanonCRWScanner.h"
#include "carve/scanners/family/CFujiRAFScanners.h"
#include "carve/scanners/family/CGIFScanner.h"
#include "carve/scanners/family/CHeaderFieldMembers.h"
#include "carve/scanners/family/CInDesignMembers.h"
#include "carve/scanners/family/CIsoMediaMembers.h"
#include "carve/scanners/family/CMIDIScanner.h"
#include "carve/scanners/family/CMP3Scanner.h"
#include "carve/scanners/family/CMpegScanner.h"
#include "carve/scanners/family/CMrwScanner.h"
#include "carve/scanners/family/CPDFScanner.h"
#include "carve/scanners/family/CPNGScanner.h"
#include "carve/scanners/family/CPsdScanner.h"
#include "carve/scanners/family/CRiffMembers.h"
#include "carve/scanners/family/CRmScanner.h"
#include "carve/scanners/family/CTiffMembers.h"
#include "carve/scanners/family/CTransportStreamMembers.h"
#include "carve/scanners/family/CX3FScanner.h"
#include "carve/scanners/family/CZipMembers.h"

namespace kestrin {

namespace {

using Factory = std::unique_ptr<CScanner> (*)();

template <class T>
std::unique_ptr<CScanner> Make() {
    return std::make_unique<T>();
}

// One row of the class table: the type ids it covers, the extension it needs (exact and
// case-sensitive; empty = any) and the classes it makes, in the order they are asked.
struct ClassRow {
    std::initializer_list<uint32_t> typeIds;
    std::string_view extension;
    Factory first;
    Factory second = nullptr;
};

// Every type id the table knows is listed, also those whose class is not written yet: such an id
// must make no scanner rather than fall through to the user-signature rule. The members that are
// one rule over a shared walk (camera raws, ISO media, RIFF, zip, InDesign, transport streams and
// the header-field members) have their rules in the family tables (scanners/family/*Members.cpp);
// the family tests check each of those rows against its row here and the shipped table.
const ClassRow kClassTable[] = {
    {{4}, "", Make<CAviScanner>},
    {{9, 61}, "", Make<CMIDIScanner>},
    {{10, 211, 212}, ".cr2", Make<CCanonCR2Scanner>},
    {{10, 211, 212}, ".dng", Make<CDNGScanner>},
    {{10, 211, 212}, ".3fr", Make<CHasselblad3FRScanner>},
    {{10, 211, 212}, ".k25", Make<CKodakDC25Scanner>},
    {{10, 211, 212}, ".dcr", Make<CKodakDCRScanner>},
    {{10, 211, 212}, ".kdc", Make<CKodakKDCScanner>},
    {{10, 211, 212}, ".nef", Make<CNikonNEFScanner>},
    {{10, 211, 212}, ".pef", Make<CPentaxPEFScanner>},
    {{10, 211, 212}, ".arw", Make<CSonyARWScanner>},
    {{10, 211, 212}, ".sr2", Make<CSonySR2Scanner>},
    {{10, 211, 212}, ".srf", Make<CSonySRFScanner>},
    {{10, 211, 212}, ".tif", Make<CTiffScanner>},
    {{10, 211, 212}, ".tiff", Make<CTiffScanner>},
    {{10, 211, 212}, ".nrw", Make<CNikonNRWScanner>},
    {{10, 211, 212}, ".erf", Make<CEpsonERFScanner>},
    {{10, 211, 212}, ".srw", Make<CSamsungSRWScanner>},
    {{11, 167}, "", Make<CJpgScanner>},
    {{15}, "", Make<CMovScanner>},
    {{18}, "", Make<CMpegScanner>},
    {{32}, "", Make<CArjScanner>},
    {{55, 56}, "", Make<CZipScanner>},
    {{62}, "", Make<CMP3Scanner>},
    {{65}, "", Make<CRmScanner>},
    {{68}, "", Make<CWavScanner>},
    {{69}, "", Make<CRaScanner>},
    {{95}, ".docx", Make<CDOCXScanner>},
    {{95}, ".xlsx", Make<CXLSXScanner>},
    {{95}, ".pptx", Make<CPPTXScanner>},
    {{110}, "", Make<CPDFScanner>},
    {{114, 503}, "", Make<CXLSScanner>},
    {{136}, "", Make<CPSTScanner>},
    {{137}, "", Make<COSTScanner>},
    {{142}, "", Make<CBMPScanner>},
    {{161, 162}, "", Make<CGIFScanner>},
    {{185}, "", Make<CPNGScanner>},
    {{189}, "", Make<CPsdScanner>},
    {{207}, "", Make<CMrwScanner>},
    {{208}, "", Make<COlympusORFScanner>},
    {{213, 217}, "", Make<CCanonCRWScanner>},
    {{214}, "", Make<CLeicaRAWScanner>, Make<CPansonicRAWScanner>},
    {{215}, "", Make<CFujiRAFScanners>},
    {{216}, "", Make<CX3FScanner>},
    {{235, 501}, ".doc", Make<CDOCScanner>},
    {{235, 501}, ".xls", Make<CXLSScanner>},
    {{235, 501}, ".ppt", Make<CPPTScanner>},
    {{275}, "", Make<CInddScanner>},
    {{276}, "", Make<CIndbScanner>},
    {{277}, "", Make<CIndtScanner>},
    {{278}, "", Make<CMTSScanner>},
    {{279}, "", Make<CM2TSScanner>},
    {{502}, "", Make<CPPTScanner>},
    {{506, 507}, "", Make<CSWFScanner>},
    {{510}, "", Make<CDIVXScanner>},
    {{511}, "", Make<CXVIDScanner>},
    {{516}, "", Make<C7zScanner>},
    {{517}, "", Make<CCABScanner>},
    {{2141, 2142}, "", Make<CAmrScanner>},
    {{3367}, "", Make<C3GPScanner>},
    {{3470}, "", Make<CMP4Scanner>},
    {{4134}, "", Make<CM4AScanner>},
    {{4149}, "", Make<CAIFFScanner>},
    {{4234}, "", Make<CM4BScanner>},
    {{5634}, "", Make<CM4VScanner>},
};

bool Covers(const ClassRow& row, uint32_t typeId) {
    for (uint32_t id : row.typeIds)
        if (id == typeId) return true;
    return false;
}

} // namespace

std::vector<std::unique_ptr<CScanner>> MakeScanners(const SignatureRecord& record) {
    std::vector<std::unique_ptr<CScanner>> made;
    if (record.userDefined) {
        made.push_back(std::make_unique<CUserScanner>());
    } else {
        bool known = false;
        for (const ClassRow& row : kClassTable) {
            if (!Covers(row, record.typeId)) continue;
            known = true;
            if (!row.extension.empty() && row.extension != record.extension) continue;
            if (row.first) made.push_back(row.first());
            if (row.second) made.push_back(row.second());
            break;
        }
        // An id the table does not know still scans: header compare and the record's fixed size.
        if (!known) made.push_back(std::make_unique<CUserScanner>());
    }
    for (auto& s : made) s->SetSignature(record);
    return made;
}

std::vector<uint32_t> KnownTypeIds() {
    std::vector<uint32_t> ids;
    for (const ClassRow& row : kClassTable)
        for (uint32_t id : row.typeIds)
            if (std::find(ids.begin(), ids.end(), id) == ids.end()) ids.push_back(id);
    return ids;
}

ScannerSet BuildScannerSet(const std::vector<SignatureRecord>& rows) {
    ScannerSet set;
    for (const SignatureRecord& row : rows)
        for (auto& s : MakeScanners(row)) set.push_back({&row, std::move(s)});
    return set;
}

} // namespace kestrin
