#include "carve/scanners/family/CPDFScanner.h"

#include <cctype>
#include <cstring>

#include "util/Bytes.h"

namespace kestrin {

namespace {
constexpr char kHeader[] = "%PDF-";
constexpr char kEnd[] = "%%EOF";
constexpr size_t kHeaderSize = sizeof kHeader - 1, kEndSize = sizeof kEnd - 1;
// Bytes after an end marker looked at for more of the body.
constexpr uint32_t kContinuationReach = 64;

// True when `p` (after white space) opens more of a PDF body: "N G obj", "xref", "trailer",
// "startxref" or a "%" comment other than a new file's "%PDF-".
bool ContinuesDocument(std::span<const uint8_t> p) {
    size_t i = 0;
    while (i < p.size() && (p[i] == ' ' || p[i] == '\r' || p[i] == '\n' || p[i] == '\t')) ++i;
    auto rest = p.subspan(i);
    auto starts = [&](const char* word) { return MatchAt(rest, 0, word, std::strlen(word)); };
    if (starts("xref") || starts("trailer") || starts("startxref")) return true;
    if (starts("%")) return !starts("%PDF-") && !starts("%%EOF");
    // "<digits> <digits> obj"
    size_t k = 0;
    for (int field = 0; field < 2; ++field) {
        size_t digits = 0;
        while (k < rest.size() && std::isdigit(rest[k])) ++k, ++digits;
        if (digits == 0 || digits > 10 || k >= rest.size() || rest[k] != ' ') return false;
        while (k < rest.size() && rest[k] == ' ') ++k;
    }
    return MatchAt(rest, k, "obj", 3);
}
} // namespace

uint64_t CPDFScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, kHeader, kHeaderSize)) return 0;
    uint64_t from = kHeaderSize;
    uint64_t end = 0;
    for (int updates = 0; updates < kMaxUpdates && from < kMaxSize; ++updates) {
        uint64_t at = Find(from, kMaxSize - from, kEnd, kEndSize);
        if (at == UINT64_MAX) break;
        uint64_t after = at + kEndSize;
        // The line end after the marker (CR, LF or CR LF) belongs to the file.
        auto tail = Upto(after, 2);
        if (!tail.empty() && tail[0] == '\r') ++after;
        if (tail.size() > (after - at - kEndSize) && tail[after - at - kEndSize] == '\n') ++after;
        end = after;
        auto next = Upto(after, kContinuationReach);
        if (!ContinuesDocument(next)) break;
        from = after;
    }
    return end;
}

} // namespace kestrin
