#include "carve/scanners/family/CASXScanner.h"

#include <cctype>

namespace kestrin {

namespace {
bool SameText(const uint8_t* p, const char* word, size_t n) {
    for (size_t i = 0; i < n; ++i)
        if (std::tolower(p[i]) != word[i]) return false;
    return true;
}
} // namespace

uint64_t CASXScanner::Walk(std::span<const uint8_t> sector) {
    size_t i = 0;
    while (i < sector.size() && std::isspace(sector[i])) ++i;
    if (sector.size() - i < 4 || !SameText(sector.data() + i, "<asx", 4)) return 0;
    for (uint64_t pos = 0; pos < kMaxSize;) {
        auto block = Upto(pos, kMaxSpan);
        if (block.size() < 6) return 0;
        for (size_t k = 0; k + 6 <= block.size(); ++k)
            if (block[k] == '<' && SameText(block.data() + k, "</asx>", 6)) return pos + k + 6;
        pos += block.size() - 5;
    }
    return 0;
}

} // namespace kestrin
