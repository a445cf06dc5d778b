#include "carve/SignatureTable.h"

#include <charconv>
#include <fstream>
#include <sstream>

namespace kestrin {

namespace {

std::string_view Trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\r')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

template <class T>
bool Number(std::string_view s, T& out) {
    auto r = std::from_chars(s.data(), s.data() + s.size(), out);
    return r.ec == std::errc() && r.ptr == s.data() + s.size() && !s.empty();
}

bool Hex(std::string_view s, std::vector<uint8_t>& out) {
    std::string digits;
    for (char ch : s)
        if (ch != ' ') digits += ch;
    if (digits.empty() || digits.size() % 2 || digits.size() / 2 > 255) return false;
    for (size_t i = 0; i < digits.size(); i += 2) {
        uint8_t b;
        auto r = std::from_chars(digits.data() + i, digits.data() + i + 2, b, 16);
        if (r.ec != std::errc() || r.ptr != digits.data() + i + 2) return false;
        out.push_back(b);
    }
    return true;
}

} // namespace

std::optional<std::vector<SignatureRecord>> ParseSignatureTable(std::string_view text, std::string* error) {
    std::vector<SignatureRecord> out;
    size_t lineNo = 0;
    while (!text.empty()) {
        size_t nl = text.find('\n');
        std::string_view line = Trim(text.substr(0, nl));
        text.remove_prefix(nl == std::string_view::npos ? text.size() : nl + 1);
        ++lineNo;
        if (line.empty() || line.front() == '#') continue;
        std::vector<std::string_view> f;
        for (size_t start = 0;;) {
            size_t bar = line.find('|', start);
            f.push_back(Trim(line.substr(start, bar == std::string_view::npos ? std::string_view::npos : bar - start)));
            if (bar == std::string_view::npos) break;
            start = bar + 1;
        }
        SignatureRecord r;
        unsigned category = 0;
        bool ok = f.size() == 8 && Number(f[0], r.typeId) && f[1].size() > 1 && f[1].front() == '.' &&
                  Hex(f[2], r.header) && Number(f[3], r.headerOffset) && Number(f[4], r.secondValue) &&
                  Number(f[5], r.fixedSize) && !f[6].empty() && Number(f[7], category) && category >= 1 &&
                  category <= 255;
        if (!ok) {
            if (error) *error = "line " + std::to_string(lineNo) + ": expected 8 fields: type id | .ext | header hex | "
                                "offset | second value | fixed size | description | category";
            return std::nullopt;
        }
        r.extension = std::string(f[1]);
        r.description = std::string(f[6]);
        r.category = uint8_t(category);
        out.push_back(std::move(r));
    }
    return out;
}

std::optional<std::vector<SignatureRecord>> LoadSignatureTable(const std::string& path, std::string* error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        if (error) *error = "cannot read " + path;
        return std::nullopt;
    }
    std::ostringstream ss;
    ss << in.rdbuf();
    return ParseSignatureTable(ss.str(), error);
}

} // namespace kestrin
