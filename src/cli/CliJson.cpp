#include "cli/CliJson.h"

#include <charconv>
#include <string_view>
#include <vector>

#include "fs/CNode.h"
#include "fs/Condition.h"
#include "util/DosDate.h"
#include "util/Text.h"

namespace kestrin::cli {

namespace {

// One code point of a name as JSON text, escaped where JSON or a raw viewer needs it.
void AppendJsonCodePoint(std::string& o, uint32_t cp) {
    switch (cp) {
    case '"': o += "\\\""; return;
    case '\\': o += "\\\\"; return;
    case '\n': o += "\\n"; return;
    case '\r': o += "\\r"; return;
    case '\t': o += "\\t"; return;
    default: break;
    }
    // Controls, bidi overrides and line separators as escapes too: a viewer that shows the
    // document raw must not be steered by a name, and some parsers choke on U+2028.
    if (IsUnsafeToDisplay(cp)) {
        char b[8] = {'\\', 'u'};
        constexpr char kHex[] = "0123456789abcdef";
        for (int k = 0; k < 4; ++k) b[2 + k] = kHex[(cp >> (12 - 4 * k)) & 15];
        o.append(b, 6);
        return;
    }
    if (cp < 0x80) {
        o += char(cp);
    } else if (cp < 0x800) {
        o += char(0xC0 | cp >> 6);
        o += char(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        o += char(0xE0 | cp >> 12);
        o += char(0x80 | (cp >> 6 & 0x3F));
        o += char(0x80 | (cp & 0x3F));
    } else {
        o += char(0xF0 | cp >> 18);
        o += char(0x80 | (cp >> 12 & 0x3F));
        o += char(0x80 | (cp >> 6 & 0x3F));
        o += char(0x80 | (cp & 0x3F));
    }
}

// Names are kept as UTF-16 units and go to JSON straight from them: a pair is one code point,
// a lone surrogate becomes U+FFFD, so a broken name cannot make the document invalid.
void AppendJsonString(std::string& o, std::u16string_view s) {
    o += '"';
    for (size_t i = 0; i < s.size(); ++i) {
        uint32_t c = s[i];
        // The common case first: printable ASCII that needs no escape.
        if (c >= 0x20 && c < 0x7F && c != '"' && c != '\\') {
            o += char(c);
            continue;
        }
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < s.size() && s[i + 1] >= 0xDC00 && s[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (s[i + 1] - 0xDC00u);
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            c = 0xFFFD;
        }
        AppendJsonCodePoint(o, c);
    }
    o += '"';
}

} // namespace

std::string JsonString(const std::string& utf8) {
    std::string o;
    o.reserve(utf8.size() + 2);
    AppendJsonString(o, ToUtf16(utf8));
    return o;
}

namespace {

void AppendNumber(std::string& o, uint64_t v) {
    char b[24];
    auto r = std::to_chars(b, b + sizeof b, v);
    o.append(b, r.ptr);
}

void AppendDate(std::string& o, uint16_t d) {
    std::string iso = FormatDosDateIso(d);
    if (iso.empty()) {
        o += "null";
        return;
    }
    o += '"';
    o += iso;
    o += '"';
}

// One node's fields, appended to `o` (a buffer the walk reuses: a million nodes make no million
// strings and stream insertions).
void AppendNodeFields(std::string& o, const CNode& n) {
    auto flag = [&](const char* key, bool v) {
        o += key;
        o += v ? "true" : "false";
    };
    auto number = [&](const char* key, uint64_t v) {
        o += key;
        AppendNumber(o, v);
    };
    o += "{\"name\":";
    AppendJsonString(o, n.name.view());
    flag(",\"folder\":", n.IsFolder());
    flag(",\"deleted\":", n.IsDeleted());
    flag(",\"carved\":", n.carved);
    number(",\"size\":", n.size);
    number(",\"location\":", n.location);
    number(",\"startOffset\":", n.startOffset);
    number(",\"recordId\":", n.recordId);
    number(",\"parentRecordId\":", n.parentRecordId);
    number(",\"flags\":", n.flags);
    number(",\"checked\":", unsigned(n.checked));
    o += ",\"created\":";
    AppendDate(o, n.createdDate);
    o += ",\"modified\":";
    AppendDate(o, n.modifiedDate);
    if (TakesCondition(n)) {
        const Condition c = ConditionOf(n);
        o += ",\"condition\":\"";
        o += ConditionName(c);
        o += '"';
        if (c != Condition::Unknown) number(",\"overwrittenBytes\":", OverwrittenBytes(n));
    }
}

} // namespace

void WriteNodeJson(std::ostream& out, const CNode& node) {
    // Depth-first with an explicit stack of the nodes whose child lists are open. The text goes
    // out in pieces of about 1 MiB.
    constexpr size_t kFlushBytes = 1 << 20;
    std::string o;
    o.reserve(kFlushBytes + 4096);
    auto flush = [&] {
        out.write(o.data(), std::streamsize(o.size()));
        o.clear();
    };
    std::vector<const CNode*> open;
    const CNode* n = &node;
    for (;;) {
        if (o.size() >= kFlushBytes) flush();
        AppendNodeFields(o, *n);
        if (n->IsFolder() || n->firstChild) {
            o += ",\"children\":[";
            if (n->firstChild) {
                open.push_back(n);
                n = n->firstChild;
                continue;
            }
            o += ']';
        }
        o += '}';
        // Climb until a node with a next sibling, closing lists on the way.
        for (;;) {
            if (open.empty()) {
                flush();
                return;
            }
            if (n->nextSibling && n != &node) {
                o += ',';
                n = n->nextSibling;
                break;
            }
            n = open.back();
            open.pop_back();
            o += "]}";
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
