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
