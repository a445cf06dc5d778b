#include "cli/CliJson.h"

#include <cstdio>
#include <vector>

#include "fs/CNode.h"
#include "fs/Condition.h"
#include "util/DosDate.h"
#include "util/Text.h"

namespace kestrin::cli {

std::string JsonString(const std::string& utf8) {
    // Names come from disks: re-encode through UTF-16 so that broken sequences cannot make the
    // document invalid.
    std::string s = ToUtf8(ToUtf16(utf8));
    std::string o;
    o.reserve(s.size() + 2);
    o += '"';
    for (size_t i = 0; i < s.size();) {
        const unsigned char c = uint8_t(s[i]);
        // `s` is well-formed UTF-8 here, so the lead byte gives the length.
        const size_t len = c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
        uint32_t cp = len == 1 ? c : c & (0x7F >> len);
        for (size_t k = 1; k < len; ++k) cp = cp << 6 | (uint8_t(s[i + k]) & 0x3F);
        switch (cp) {
        case '"': o += "\\\""; break;
        case '\\': o += "\\\\"; break;
        case '\n': o += "\\n"; break;
        case '\r': o += "\\r"; break;
        case '\t': o += "\\t"; break;
        default:
            // Controls, bidi overrides and line separators as escapes too: a viewer that shows
            // the document raw must not be steered by a name, and some parsers choke on U+2028.
            if (IsUnsafeToDisplay(cp)) {
                char b[16];
                std::snprintf(b, sizeof b, "\\u%04x", unsigned(cp));
                o += b;
            } else {
                o.append(s, i, len);
            }
        }
        i += len;
    }
    o += '"';
    return o;
}

namespace {

std::string DateJson(uint16_t d) {
    std::string iso = FormatDosDateIso(d);
    return iso.empty() ? "null" : "\"" + iso + "\"";
}

void WriteNodeFields(std::ostream& out, const CNode& n) {
    out << "{\"name\":" << JsonString(ToUtf8(n.name)) << ",\"folder\":" << (n.IsFolder() ? "true" : "false")
        << ",\"deleted\":" << (n.IsDeleted() ? "true" : "false") << ",\"carved\":" << (n.carved ? "true" : "false")
        << ",\"size\":" << n.size << ",\"location\":" << n.location << ",\"startOffset\":" << n.startOffset
        << ",\"recordId\":" << n.recordId << ",\"parentRecordId\":" << n.parentRecordId << ",\"flags\":" << n.flags
        << ",\"checked\":" << unsigned(n.checked) << ",\"created\":" << DateJson(n.createdDate)
        << ",\"modified\":" << DateJson(n.modifiedDate);
    if (TakesCondition(n)) {
        const Condition c = ConditionOf(n);
        out << ",\"condition\":\"" << ConditionName(c) << '"';
        if (c != Condition::Unknown) out << ",\"overwrittenBytes\":" << OverwrittenBytes(n);
    }
}

} // namespace

void WriteNodeJson(std::ostream& out, const CNode& node) {
    // Depth-first with an explicit stack of the nodes whose child lists are open.
    std::vector<const CNode*> open;
    const CNode* n = &node;
    for (;;) {
        WriteNodeFields(out, *n);
        if (n->IsFolder() || n->firstChild) {
            out << ",\"children\":[";
            if (n->firstChild) {
                open.push_back(n);
                n = n->firstChild;
                continue;
            }
            out << "]";
        }
        out << "}";
        // Climb until a node with a next sibling, closing lists on the way.
        for (;;) {
            if (open.empty()) return;
            if (n->nextSibling && n != &node) {
                out << ",";
                n = n->nextSibling;
                break;
            }
            n = open.back();
            open.pop_back();
            out << "]}";
        }
    }
}

void WriteScanJsonBody(std::ostream& out, RecoveryMode mode, const SourceInfo& src, const CNode& root) {
    out << "\"mode\":" << static_cast<uint32_t>(mode) << ",\"source\":{\"path\":" << JsonString(src.path) << ",\"kind\":" << unsigned(src.kind)
        << ",\"firstSector\":" << src.firstSector << ",\"sectorCount\":" << src.sectorCount
        << ",\"sectorSize\":" << src.sectorSize << ",\"fsKind\":" << unsigned(src.fsKind) << "},\"root\":";
    WriteNodeJson(out, root);
}

} // namespace kestrin::cli
