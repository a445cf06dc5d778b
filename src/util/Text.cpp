#include "util/Text.h"

namespace kestrin {

namespace {

void AppendUtf8(std::string& out, uint32_t c) {
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

// Length of the well-formed UTF-8 sequence at `at` and its code point in `c`; 0 for a byte that
// starts no such sequence (stray continuation, truncation, overlong form, surrogate, past U+10FFFF).
size_t DecodeUtf8At(std::string_view s, size_t at, uint32_t& c) {
    const uint8_t b = uint8_t(s[at]);
    size_t need;
    uint32_t min;
    if (b < 0x80) {
        c = b;
        return 1;
    } else if ((b & 0xE0) == 0xC0) {
        c = b & 0x1F;
        need = 1;
        min = 0x80;
    } else if ((b & 0xF0) == 0xE0) {
        c = b & 0x0F;
        need = 2;
        min = 0x800;
    } else if ((b & 0xF8) == 0xF0) {
        c = b & 0x07;
        need = 3;
        min = 0x10000;
    } else {
        return 0;
    }
    if (s.size() - at <= need) return 0;
    for (size_t k = 1; k <= need; ++k) {
        const uint8_t t = uint8_t(s[at + k]);
        if ((t & 0xC0) != 0x80) return 0;
        c = c << 6 | (t & 0x3F);
    }
    if (c < min || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return 0;
    return need + 1;
}

constexpr char kHexDigits[] = "0123456789abcdef";

void AppendByteEscape(std::string& out, uint8_t b) {
    out += "\\x";
    out += kHexDigits[b >> 4];
    out += kHexDigits[b & 0xF];
}

// ASCII controls as bytes, any other code point as \uNNNN, so that the C1 control U+0085 and a
// stray byte 0x85 read differently. Only code points of the BMP are ever escaped.
void AppendCodePointEscape(std::string& out, uint32_t c) {
    if (c < 0x80) {
        AppendByteEscape(out, uint8_t(c));
        return;
    }
    out += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4) out += kHexDigits[c >> shift & 0xF];
}

} // namespace

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
        AppendUtf8(out, c);
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

bool IsUnsafeToDisplay(uint32_t c) {
    // Controls move the cursor, recolour or retitle the terminal; the bidi characters and the
    // separators reorder or break what follows, so "\u202egpj.exe" would read "exe.jpg".
    return c < 0x20 || (c >= 0x7F && c <= 0x9F) || c == 0x061C || c == 0x200E || c == 0x200F ||
           (c >= 0x2028 && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

std::string EscapeForTerminal(std::string_view utf8) {
    std::string out;
    out.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size();) {
        uint32_t c = 0;
        size_t len = DecodeUtf8At(utf8, i, c);
        if (len == 0) {
            AppendByteEscape(out, uint8_t(utf8[i]));
            ++i;
            continue;
        }
        if (IsUnsafeToDisplay(c)) AppendCodePointEscape(out, c);
        else out.append(utf8, i, len);
        i += len;
    }
    return out;
}

std::string EscapeForTerminal(std::u16string_view name) {
    std::string out;
    out.reserve(name.size());
    for (size_t i = 0; i < name.size(); ++i) {
        uint32_t c = name[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < name.size() && name[i + 1] >= 0xDC00 && name[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (name[i + 1] - 0xDC00);
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            AppendCodePointEscape(out, c);
            continue;
        }
        if (IsUnsafeToDisplay(c)) AppendCodePointEscape(out, c);
        else AppendUtf8(out, c);
    }
    return out;
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

std::string EscapeLinesForTerminal(std::string_view text) {
    std::string out;
    size_t at = 0;
    for (;;) {
        size_t nl = text.find('\n', at);
        out += EscapeForTerminal(text.substr(at, nl == std::string_view::npos ? std::string_view::npos : nl - at));
        if (nl == std::string_view::npos) break;
        out += '\n';
        at = nl + 1;
    }
    return out;
}

} // namespace kestrin
