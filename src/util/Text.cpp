#include "util/Text.h"

namespace kestrin {

std::string ToUtf8(std::u16string_view s) {
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size(); ++i) {
        uint32_t c = s[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < s.size() && s[i + 1] >= 0xDC00 && s[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (s[i + 1] - 0xDC00);
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            c = 0xFFFD;
        }
        if (c < 0x80) {
            out += char(c);
        } else if (c < 0x800) {
            out += char(0xC0 | c >> 6);
            out += char(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += char(0xE0 | c >> 12);
            out += char(0x80 | (c >> 6 & 0x3F));
            out += char(0x80 | (c & 0x3F));
        } else {
            out += char(0xF0 | c >> 18);
            out += char(0x80 | (c >> 12 & 0x3F));
            out += char(0x80 | (c >> 6 & 0x3F));
            out += char(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::u16string ToUtf16(std::string_view s) {
    std::u16string out;
    out.reserve(s.size());
    size_t i = 0;
    while (i < s.size()) {
        uint8_t b = uint8_t(s[i]);
        uint32_t c = 0xFFFD;
        size_t need = 0;
        if (b < 0x80) { c = b; need = 0; }
        else if ((b & 0xE0) == 0xC0) { c = b & 0x1F; need = 1; }
        else if ((b & 0xF0) == 0xE0) { c = b & 0x0F; need = 2; }
        else if ((b & 0xF8) == 0xF0) { c = b & 0x07; need = 3; }
        else { out += char16_t(0xFFFD); ++i; continue; }
        bool ok = true;
        for (size_t k = 1; k <= need; ++k) {
            if (i + k >= s.size() || (uint8_t(s[i + k]) & 0xC0) != 0x80) { ok = false; break; }
            c = c << 6 | (uint8_t(s[i + k]) & 0x3F);
        }
        if (!ok) { out += char16_t(0xFFFD); ++i; continue; }
        i += need + 1;
        if (c >= 0x10000 && c <= 0x10FFFF) {
            c -= 0x10000;
            out += char16_t(0xD800 + (c >> 10));
            out += char16_t(0xDC00 + (c & 0x3FF));
        } else if (c > 0x10FFFF) {
            out += char16_t(0xFFFD);
        } else {
            out += char16_t(c);
        }
    }
    return out;
}

std::u16string AsciiLower(std::u16string_view s) {
    std::u16string out(s);
    for (auto& c : out)
        if (c >= u'A' && c <= u'Z') c = char16_t(c + 32);
    return out;
}

std::string AsciiLower(std::string_view s) {
    std::string out(s);
    for (auto& c : out)
        if (c >= 'A' && c <= 'Z') c = char(c + 32);
    return out;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && AsciiLower(a) == AsciiLower(b);
}

std::string WithThousands(uint64_t v) {
    std::string digits = std::to_string(v), out;
    int n = 0;
    for (auto it = digits.rbegin(); it != digits.rend(); ++it) {
        if (n && n % 3 == 0) out.insert(out.begin(), ',');
        out.insert(out.begin(), *it);
        ++n;
    }
    return out;
}

} // namespace kestrin
