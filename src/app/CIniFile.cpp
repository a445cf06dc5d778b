#include "app/CIniFile.h"

#include <filesystem>

#include "platform/AtomicFile.h"
#include "platform/Platform.h"
#include "util/Text.h"

namespace kestrin::app {

namespace {

namespace fs = std::filesystem;

// Paths are UTF-8 everywhere in the program; std::filesystem needs to be told so on Windows.
fs::path U8Path(const std::string& s) { return fs::path(std::u8string(s.begin(), s.end())); }
std::string PathString(const fs::path& p) {
    std::u8string u = p.u8string();
    return std::string(u.begin(), u.end());
}

std::string_view Trim(std::string_view s) {
    size_t b = 0, e = s.size();
    while (b < e && (s[b] == ' ' || s[b] == '\t')) ++b;
    while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t')) --e;
    return s.substr(b, e - b);
}

// A value fully wrapped in matching quotes loses them, as the profile functions do.
std::string_view StripQuotes(std::string_view v) {
    if (v.size() >= 2 && (v.front() == '"' || v.front() == '\'') && v.back() == v.front())
        return v.substr(1, v.size() - 2);
    return v;
}

enum class LineKind { Blank, Comment, Section, Entry, Junk };

struct ParsedLine {
    LineKind kind = LineKind::Blank;
    std::string_view name;  // section name or key, trimmed
    std::string_view value; // entry value, trimmed, quotes removed
    size_t equalsAt = std::string_view::npos;
};

ParsedLine ParseLine(std::string_view text) {
    ParsedLine p;
    std::string_view t = Trim(text);
    if (t.empty()) return p;
    if (t.front() == ';') {
        p.kind = LineKind::Comment;
        return p;
    }
    if (t.front() == '[') {
        size_t close = t.find(']');
        if (close == std::string_view::npos) {
            // An unclosed header starts no section; the line is ignored.
            p.kind = LineKind::Junk;
            return p;
        }
        p.kind = LineKind::Section;
        p.name = Trim(t.substr(1, close - 1));
        return p;
    }
    p.kind = LineKind::Entry;
    p.equalsAt = text.find('=');
    if (p.equalsAt == std::string_view::npos) {
        // A line without "=" is a key without a value.
        p.name = t;
        return p;
    }
    p.name = Trim(text.substr(0, p.equalsAt));
    p.value = StripQuotes(Trim(text.substr(p.equalsAt + 1)));
    return p;
}

} // namespace

CIniFile::CIniFile(std::span<const uint8_t> bytes) {
    std::string text;
    if (bytes.size() >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE) {
        m_encoding = Encoding::Utf16Le;
        std::u16string wide;
        wide.reserve(bytes.size() / 2);
        // An odd trailing byte cannot be half a character of anything; it is dropped.
        for (size_t i = 2; i + 1 < bytes.size(); i += 2) wide += char16_t(bytes[i] | bytes[i + 1] << 8);
        text = ToUtf8(wide);
    } else {
        size_t skip = 0;
        if (bytes.size() >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF) {
            m_encoding = Encoding::Utf8Bom;
            skip = 3;
        }
        text.assign(reinterpret_cast<const char*>(bytes.data()) + skip, bytes.size() - skip);
    }
    size_t pos = 0;
    while (pos < text.size()) {
        size_t brk = text.find_first_of("\r\n", pos);
        Line line;
        if (brk == std::string::npos) {
            line.text = text.substr(pos);
            pos = text.size();
        } else {
            line.text = text.substr(pos, brk - pos);
            size_t len = (text[brk] == '\r' && brk + 1 < text.size() && text[brk + 1] == '\n') ? 2 : 1;
            line.eol = text.substr(brk, len);
            pos = brk + len;
        }
        m_lines.push_back(std::move(line));
    }
}

bool CIniFile::Load(const std::string& path) {
    *this = CIniFile();
    // Only plain files: opening a FIFO put in place of settings.ini would block start-up.
    std::error_code ec;
    if (!fs::is_regular_file(U8Path(path), ec)) return false;
    platform::File f;
    if (!f.OpenRead(path)) return false;
    uint64_t size = f.Size();
    if (size > kMaxFileBytes) return false;
    std::vector<uint8_t> bytes(static_cast<size_t>(size));
    long long got = size ? f.ReadAt(bytes.data(), bytes.size(), 0) : 0;
    if (got < 0) return false;
    bytes.resize(size_t(got));
    *this = CIniFile(bytes);
    return true;
}

std::vector<uint8_t> CIniFile::Serialize() const {
    std::string text;
    for (const Line& l : m_lines) {
        text += l.text;
        text += l.eol;
    }
    std::vector<uint8_t> out;
    if (m_encoding == Encoding::Utf16Le) {
        std::u16string wide = ToUtf16(text);
        out.reserve(2 + wide.size() * 2);
        out.push_back(0xFF);
        out.push_back(0xFE);
        for (char16_t c : wide) {
            out.push_back(uint8_t(c & 0xFF));
            out.push_back(uint8_t(c >> 8));
        }
        return out;
    }
    if (m_encoding == Encoding::Utf8Bom) out = {0xEF, 0xBB, 0xBF};
    out.insert(out.end(), text.begin(), text.end());
    return out;
}

bool CIniFile::Save(const std::string& path) const {
    std::vector<uint8_t> bytes = Serialize();
    // Written beside the file, flushed and renamed over it: a crash or a full disk never leaves
    // half a file, and a failed rename keeps the old one. There is deliberately no fall-back to
    // writing in place when the folder refuses new files: that truncates the file first, so a
    // failed write would lose it, and a setting not remembered costs far less.
    return platform::WriteFileAtomically(path, bytes.data(), bytes.size(), /*replace=*/true);
}

std::optional<std::pair<size_t, size_t>> CIniFile::FindSection(std::string_view section) const {
    std::string_view want = Trim(section);
    for (size_t i = 0; i < m_lines.size(); ++i) {
        ParsedLine p = ParseLine(m_lines[i].text);
        if (p.kind != LineKind::Section || !EqualsNoCase(p.name, want)) continue;
        size_t end = i + 1;
        while (end < m_lines.size() && ParseLine(m_lines[end].text).kind != LineKind::Section) ++end;
        return std::make_pair(i + 1, end);
    }
    return std::nullopt;
}

std::optional<std::string> CIniFile::Get(std::string_view section, std::string_view key) const {
    auto range = FindSection(section);
    if (!range) return std::nullopt;
    std::string_view want = Trim(key);
    for (size_t i = range->first; i < range->second; ++i) {
        ParsedLine p = ParseLine(m_lines[i].text);
        if (p.kind == LineKind::Entry && EqualsNoCase(p.name, want)) return std::string(p.value);
    }
    return std::nullopt;
}

std::vector<std::pair<std::string, std::string>> CIniFile::Entries(std::string_view section) const {
    std::vector<std::pair<std::string, std::string>> out;
    auto range = FindSection(section);
    if (!range) return out;
    for (size_t i = range->first; i < range->second; ++i) {
        ParsedLine p = ParseLine(m_lines[i].text);
        if (p.kind != LineKind::Entry) continue;
        bool seen = false;
        for (const auto& [name, value] : out)
            if (EqualsNoCase(name, p.name)) {
                seen = true;
                break;
            }
        if (!seen) out.emplace_back(std::string(p.name), std::string(p.value));
    }
    return out;
}

std::string CIniFile::DefaultEol() const {
    for (const Line& l : m_lines)
        if (!l.eol.empty()) return l.eol;
    return "\r\n"; // what the system's own writer produces
}

void CIniFile::Set(std::string_view section, std::string_view key, std::string_view value) {
    // A line break inside a value would split it into lines of its own; keep the first line.
    value = value.substr(0, value.find_first_of("\r\n"));
    std::string eol = DefaultEol();
    std::string_view keyName = Trim(key);
    auto range = FindSection(section);
    if (range) {
        size_t lastUsed = range->first; // insertion point: after the section's last non-blank line
        for (size_t i = range->first; i < range->second; ++i) {
            ParsedLine p = ParseLine(m_lines[i].text);
            if (p.kind != LineKind::Blank) lastUsed = i + 1;
            if (p.kind != LineKind::Entry || !EqualsNoCase(p.name, keyName)) continue;
            // Keep the key exactly as written (indentation and spelling); replace what follows.
            std::string& text = m_lines[i].text;
            if (p.equalsAt == std::string::npos) text += '=';
            else text.resize(p.equalsAt + 1);
            text += value;
            return;
        }
        if (m_lines[lastUsed - 1].eol.empty()) m_lines[lastUsed - 1].eol = eol;
        m_lines.insert(m_lines.begin() + std::ptrdiff_t(lastUsed),
                       Line{std::string(keyName) + "=" + std::string(value), eol});
        return;
    }
    if (!m_lines.empty()) {
        if (m_lines.back().eol.empty()) m_lines.back().eol = eol;
        if (!Trim(m_lines.back().text).empty()) m_lines.push_back(Line{"", eol});
    }
    m_lines.push_back(Line{"[" + std::string(Trim(section)) + "]", eol});
    m_lines.push_back(Line{std::string(keyName) + "=" + std::string(value), eol});
}

std::string CapUtf16Units(std::string_view text, size_t maxUnits) {
    size_t units = 0, i = 0;
    while (i < text.size()) {
        uint8_t b = uint8_t(text[i]);
        size_t len = b < 0x80 ? 1 : (b & 0xE0) == 0xC0 ? 2 : (b & 0xF0) == 0xE0 ? 3 : (b & 0xF8) == 0xF0 ? 4 : 1;
        if (len > text.size() - i) len = text.size() - i;
        size_t cost = len == 4 ? 2 : 1; // four-byte sequences are surrogate pairs in UTF-16
        if (units + cost > maxUnits) break;
        units += cost;
        i += len;
    }
    return std::string(text.substr(0, i));
}

std::string ReadProfileString(std::string_view section, std::string_view key, const std::string& path,
                              size_t bufferChars) {
    if (bufferChars == 0) return {};
    CIniFile ini;
    if (!ini.Load(path)) return {};
    auto value = ini.Get(section, key);
    return value ? CapUtf16Units(*value, bufferChars - 1) : std::string();
}

bool WriteProfileString(std::string_view section, std::string_view key, std::string_view value,
                        const std::string& path) {
    CIniFile ini;
    ini.Load(path); // a missing file starts empty
    ini.Set(section, key, value);
    return ini.Save(path);
}

std::string ResolveNoCase(const std::string& path) {
    std::error_code ec;
    fs::path p = U8Path(path);
    if (fs::exists(p, ec)) return path;
    fs::path folder = p.has_parent_path() ? p.parent_path() : fs::path(".");
    std::string want = PathString(p.filename());
    std::string best;
    fs::directory_iterator it(folder, ec), end;
    // The language folder holds a handful of files; the bound only guards a pathological folder.
    for (int n = 0; !ec && it != end && n < 100000; it.increment(ec), ++n) {
        std::string name = PathString(it->path().filename());
        if (EqualsNoCase(name, want) && (best.empty() || name < best)) best = name;
    }
    return best.empty() ? path : PathString(p.parent_path() / U8Path(best));
}

} // namespace kestrin::app
