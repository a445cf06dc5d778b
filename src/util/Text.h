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
// "1,234,567" style thousands separators.
std::string WithThousands(uint64_t v);

} // namespace kestrin
