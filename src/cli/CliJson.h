#pragma once
// The found-item tree as JSON, the form tools outside the project read: keep it stable.
//
// Node: {"name","folder","deleted","carved","size","location","startOffset","recordId",
//        "parentRecordId","flags","checked","created","modified","condition","overwrittenBytes",
//        "children"}; dates are "YYYY-MM-DD" or null, "children" is present (maybe empty) exactly
// for folders and for any other node that has children. Deleted files (not folders) carry
// "condition": "excellent", "partly-overwritten", "overwritten" or "unknown", and when it is not
// "unknown", "overwrittenBytes": the bytes of the file that lie in clusters in use now.
// Scan: {"mode","source":{"path","kind","firstSector","sectorCount","sectorSize","fsKind"},
//        "root":NODE}; several volumes: {"volumes":[{"partition":N, ...the same...}]}.
#include <cstdint>
#include <ostream>
#include <string>

#include "job/ScanOperation.h"
#include "storage/CPhysicalDisk.h"

namespace kestrin {
class CNode;
}

namespace kestrin::cli {

struct SourceInfo {
    std::string path;
    SourceKind kind = SourceKind::None;
    uint64_t firstSector = 0;
    uint64_t sectorCount = 0;
    uint32_t sectorSize = 0;
    FsKind fsKind = FsKind::None;
};

// A JSON string literal of UTF-8 text (invalid bytes become U+FFFD). Besides what JSON requires,
// DEL, the C1 controls, the bidi characters and U+2028/U+2029 are written as \uNNNN escapes.
std::string JsonString(const std::string& utf8);
// Writes `node` and everything below it; iterative, so depth costs no stack.
void WriteNodeJson(std::ostream& out, const CNode& node);
// The body of one scan object without its braces: "mode", "source", "root".
void WriteScanJsonBody(std::ostream& out, RecoveryMode mode, const SourceInfo& src, const CNode& root);

} // namespace kestrin::cli
