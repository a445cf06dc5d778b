#include <gtest/gtest.h>

#include "util/Bytes.h"
#include "util/DosDate.h"
#include "util/Text.h"

using namespace kestrin;

TEST(Text, Utf8RoundTripKeepsAccentsAndSurrogates) {
    std::u16string s = u"Caf\u00e9 \u65e5\u672c \U0001F600";
    EXPECT_EQ(ToUtf16(ToUtf8(s)), s);
    EXPECT_EQ(ToUtf8(u"\xD800x"), "\xEF\xBF\xBDx"); // lone surrogate
    EXPECT_EQ(ToUtf16("a\xC3"), u"a\xFFFD");        // truncated sequence
}

TEST(Text, TerminalEscapesControlsBidiAndBrokenUtf8) {
    struct Case {
        const char* in;
        const char* out;
    };
    const Case cases[] = {
        // Ordinary text, a backslash and characters next to the escaped ranges stay as they are.
        {"plain name.txt", "plain name.txt"},
        {"back\\slash", "back\\slash"},
        {"caf\xC3\xA9 \xE6\x97\xA5 \xF0\x9F\x98\x80", "caf\xC3\xA9 \xE6\x97\xA5 \xF0\x9F\x98\x80"},
        {"\xC2\xA0\xE2\x80\x8D\xE2\x80\xAF\xE2\x81\xA5\xE2\x81\xAA", "\xC2\xA0\xE2\x80\x8D\xE2\x80\xAF\xE2\x81\xA5\xE2\x81\xAA"},
        // C0 controls and DEL.
        {"\x1b[31mred", "\\x1b[31mred"},
        {"a\nb\rc\td\x07" "e\x7f", "a\\x0ab\\x0dc\\x09d\\x07e\\x7f"},
        // C1 controls: the code point U+0085 and a stray byte 0x85 read differently.
        {"\xC2\x9B" "2J \xC2\x85 \xC2\x9F", "\\u009b2J \\u0085 \\u009f"},
        {"\x85", "\\x85"},
        // Bidi marks, embeddings, overrides, isolates and the separators.
        {"photo\xE2\x80\xAEgpj.exe", "photo\\u202egpj.exe"},
        {"\xE2\x80\xAA\xE2\x80\xAB\xE2\x80\xAC\xE2\x80\xAD", "\\u202a\\u202b\\u202c\\u202d"},
        {"\xE2\x81\xA6\xE2\x81\xA9 \xE2\x80\x8E\xE2\x80\x8F \xD8\x9C", "\\u2066\\u2069 \\u200e\\u200f \\u061c"},
        {"a\xE2\x80\xA8" "b\xE2\x80\xA9" "c", "a\\u2028b\\u2029c"},
        // Broken UTF-8: each byte that starts no valid sequence is shown alone.
        {"a\xE2\x82", "a\\xe2\\x82"},
        {"\xE2(x", "\\xe2(x"},
        {"\xC0\xAF\xC0\x80", "\\xc0\\xaf\\xc0\\x80"},          // overlong
        {"\xED\xA0\x80", "\\xed\\xa0\\x80"},                    // an encoded surrogate
        {"\xF4\x90\x80\x80\xFF", "\\xf4\\x90\\x80\\x80\\xff"}, // past U+10FFFF
        {"\xE2\x80\xE2\x80\xAE", "\\xe2\\x80\\u202e"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(EscapeForTerminal(std::string_view(c.in)), c.out) << c.in;
        // Text that was valid UTF-8 gives the same from its UTF-16 form.
        std::u16string u = ToUtf16(c.in);
        if (ToUtf8(u) == c.in) {
            EXPECT_EQ(EscapeForTerminal(std::u16string_view(u)), c.out) << c.in;
        }
    }
    // A NUL inside the text is a control like the others.
    EXPECT_EQ(EscapeForTerminal(std::string_view("a\0b", 3)), "a\\x00b");
    // Unpaired surrogates in a UTF-16 name are shown by their value; a pair is one character.
    EXPECT_EQ(EscapeForTerminal(std::u16string_view(u"lone\xD800.txt")), "lone\\ud800.txt");
    EXPECT_EQ(EscapeForTerminal(std::u16string_view(u"\xDC00x\xD83D")), "\\udc00x\\ud83d");
    EXPECT_EQ(EscapeForTerminal(std::u16string_view(u"\xD83D\xDE00\x1b")), "\xF0\x9F\x98\x80\\x1b");
}

TEST(Text, ThousandsSeparators) {
    EXPECT_EQ(WithThousands(0), "0");
    EXPECT_EQ(WithThousands(999), "999");
    EXPECT_EQ(WithThousands(1000), "1,000");
    EXPECT_EQ(WithThousands(1234567), "1,234,567");
}

TEST(DosDate, FromFileTimeAndFormats) {
    // 2021-03-04 12:00 UTC as FILETIME.
    uint64_t ft = (uint64_t(1614859200) + 11644473600ULL) * 10000000ULL;
    uint16_t d = DosDateFromFileTime(ft);
    EXPECT_EQ(FormatDosDateShort(d), "03/04/21");
    EXPECT_EQ(FormatDosDateIso(d), "2021-03-04");
    EXPECT_EQ(UnixFromDosDate(d), 1614816000);
    EXPECT_EQ(DosDateFromUnix(0), 0); // 1970 cannot be expressed
    EXPECT_EQ(FormatDosDateShort(0), "");
}

TEST(Bytes, CheckedReadersRefuseToReadPastTheEnd) {
    const uint8_t b[] = {1, 2, 3, 4, 5};
    Bytes s(b);
    EXPECT_EQ(*ReadLe32(s, 0), 0x04030201u);
    EXPECT_EQ(*ReadBe32(s, 1), 0x02030405u);
    EXPECT_FALSE(ReadLe32(s, 2));
    EXPECT_FALSE(ReadLe16(s, SIZE_MAX));
    EXPECT_FALSE(ReadLe64(s, 0));
}
