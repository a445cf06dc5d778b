#pragma once
// Text conversion at the edges: names live as UTF-16 (char16_t) in memory, UTF-8 at the file
// system and the terminal.
#include <cstdint>
#include <string>
#include <string_view>

namespace kestrin {

// Invalid sequences become U+FFFD; unpaired surrogates in UTF-16 are encoded as U+FFFD too.
std::string ToUtf8(std::u16string_view s);
std::u16string ToUtf16(std::string_view s);
// Case folding of ASCII letters only (file systems' own upcase tables are not needed here).
std::u16string AsciiLower(std::u16string_view s);
std::string AsciiLower(std::string_view s);
bool EqualsNoCase(std::string_view a, std::string_view b);
// Text from a disk made safe to print on a terminal as one line. Escaped, everything else kept:
//   bytes that are not valid UTF-8 (overlong forms and encoded surrogates included), the C0
//   controls and DEL as \xNN;
//   the C1 controls, the bidirectional marks, embeddings, overrides and isolates, and the line
//   and paragraph separators as \uNNNN (lowercase hex).
// A backslash already in the text stays as it is, so ordinary names print unchanged; the price is
// that a name holding the four characters "\x1b" looks like one holding ESC. Where the exact name
// matters, a quoted form such as JSON gives it.
std::string EscapeForTerminal(std::string_view utf8);
// The same for a name as the tree keeps it; an unpaired surrogate is shown as \udNNN.
std::string EscapeForTerminal(std::u16string_view name);
// The same for a message of several lines: each line escaped, the line breaks kept.
std::string EscapeLinesForTerminal(std::string_view text);
// Whether a code point is one that EscapeForTerminal escapes (controls, bidi, separators).
bool IsUnsafeToDisplay(uint32_t codePoint);
// "1,234,567" style thousands separators.
std::string WithThousands(uint64_t v);

} // namespace kestrin
