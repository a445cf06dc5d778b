#pragma once
// Initialisation files (settings.ini, Lang/*.ini) read and written by the Windows profile-string
// rules, so files edited on either system behave the same:
// - section and key names are compared without case; the first matching section, and in it the
//   first matching key, wins;
// - names and values are trimmed of spaces and tabs, and a value wrapped in matching double or
//   single quotes loses them (the only way to keep leading or trailing spaces);
// - lines starting with ";" are comments; "\r\n", "\n" and a lone "\r" all end a line;
// - the file is UTF-8 (with or without a byte-order mark) or UTF-16LE with a byte-order mark;
// - writing replaces one key in place and keeps every other byte of the file, adding the key
//   (and its section) when missing, in the file's own encoding and line endings.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kestrin::app {

class CIniFile {
public:
    enum class Encoding { Utf8, Utf8Bom, Utf16Le };

    // Files larger than this are not read: settings and language files are a few kilobytes, and
    // a runaway file must not make us allocate without bound.
    static constexpr uint64_t kMaxFileBytes = 16u << 20;

    CIniFile() = default;
    // Parses the raw bytes of a file (any content is accepted; nothing is rejected).
    explicit CIniFile(std::span<const uint8_t> bytes);

    // False when the file is missing, unreadable or too large; the object is then empty.
    bool Load(const std::string& path);
    // Writes the whole file to a temporary file in the same folder, flushes it and renames it
    // over `path`; false (the old file untouched) when any step fails.
    bool Save(const std::string& path) const;

    // Value of the first `key` in the first `section`; nullopt when either is missing.
    std::optional<std::string> Get(std::string_view section, std::string_view key) const;
    // Replaces the value of that key in place, or adds the key (and the section) when missing.
    void Set(std::string_view section, std::string_view key, std::string_view value);
    // Every key of the first `section` with its value, first occurrence of each name only.
    std::vector<std::pair<std::string, std::string>> Entries(std::string_view section) const;

    std::vector<uint8_t> Serialize() const;
    Encoding GetEncoding() const { return m_encoding; }

private:
    struct Line {
        std::string text; // UTF-8, without the line break
        std::string eol;  // "\r\n", "\n", "\r" or "" for an unterminated last line
    };
    // Index range [first, end) of the body lines of the first matching section; nullopt when the
    // section is missing.
    std::optional<std::pair<size_t, size_t>> FindSection(std::string_view section) const;
    std::string DefaultEol() const;

    std::vector<Line> m_lines;
    Encoding m_encoding = Encoding::Utf8;
};

// Windows-style profile string read: the value of `key` in `section` of `path`, or "" when the
// file, section or key is missing. Like a read into a buffer of `bufferChars` UTF-16 characters,
// the result holds at most `bufferChars - 1` of them (a surrogate pair is never split).
std::string ReadProfileString(std::string_view section, std::string_view key, const std::string& path,
                              size_t bufferChars);
// Windows-style profile string write; creates the file when missing.
bool WriteProfileString(std::string_view section, std::string_view key, std::string_view value,
                        const std::string& path);

// Cuts UTF-8 text to at most `maxUnits` UTF-16 code units, never inside a character.
std::string CapUtf16Units(std::string_view text, size_t maxUnits);

// `path` itself when it exists; otherwise a file in the same folder whose name differs only in
// ASCII case (lowest such name, so the choice is stable); otherwise `path` unchanged. Lets
// "German.INI" and "German.ini" name the same file on case-sensitive file systems too.
std::string ResolveNoCase(const std::string& path);

} // namespace kestrin::app
