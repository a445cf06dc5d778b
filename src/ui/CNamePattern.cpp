#include "ui/CNamePattern.h"

#include <QChar>

namespace kestrin::ui {

namespace {

char16_t Fold(char16_t c) {
    if (c < 0x80) return c >= u'A' && c <= u'Z' ? char16_t(c + 32) : c;
    char32_t f = QChar::toCaseFolded(char32_t(c));
    return f <= 0xFFFF ? char16_t(f) : c;
}

bool IsDigit(char16_t c) { return c >= u'0' && c <= u'9'; }

} // namespace

CNamePattern::CNamePattern(const QString& pattern, bool whole) {
    std::u16string p = pattern.toStdU16String();
    for (auto& c : p) c = Fold(c);
    if (!whole && !p.empty() && p.find_first_of(u"*?") == std::u16string::npos) p = u"*" + p + u"*";
    m_folded = std::move(p);
}

bool CNamePattern::Matches(std::u16string_view name) const {
    // Greedy matching with one backtrack point: the last "*" seen. Linear in practice, at most
    // name × pattern steps.
    const std::u16string& p = m_folded;
    size_t n = 0, i = 0, star = std::u16string::npos, resume = 0;
    while (n < name.size()) {
        if (i < p.size() && (p[i] == u'?' || (p[i] != u'*' && p[i] == Fold(name[n])))) {
            ++n;
            ++i;
        } else if (i < p.size() && p[i] == u'*') {
            star = i++;
            resume = n;
        } else if (star != std::u16string::npos) {
            i = star + 1;
            n = ++resume;
        } else {
            return false;
        }
    }
    while (i < p.size() && p[i] == u'*') ++i;
    return i == p.size();
}

int NaturalCompare(std::u16string_view a, std::u16string_view b) {
    size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (IsDigit(a[i]) && IsDigit(b[j])) {
            // Leading zeros do not count; the longer run of significant digits is the larger.
            size_t zi = i, zj = j;
            while (zi < a.size() && a[zi] == u'0') ++zi;
            while (zj < b.size() && b[zj] == u'0') ++zj;
            size_t ei = zi, ej = zj;
            while (ei < a.size() && IsDigit(a[ei])) ++ei;
            while (ej < b.size() && IsDigit(b[ej])) ++ej;
            if (ei - zi != ej - zj) return ei - zi < ej - zj ? -1 : 1;
            for (size_t k = 0; k < ei - zi; ++k)
                if (a[zi + k] != b[zj + k]) return a[zi + k] < b[zj + k] ? -1 : 1;
            if (ei - i != ej - j) return ei - i < ej - j ? -1 : 1; // "7" before "007"
            i = ei;
            j = ej;
            continue;
        }
        char16_t x = Fold(a[i]), y = Fold(b[j]);
        if (x != y) return x < y ? -1 : 1;
        ++i;
        ++j;
    }
    if (i < a.size() || j < b.size()) return i < a.size() ? 1 : -1;
    return a == b ? 0 : a < b ? -1 : 1;
}

} // namespace kestrin::ui
