#include "app/CIniFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>

#include "AppTestUtil.h"

namespace kestrin::app {
namespace {

CIniFile FromText(const std::string& text) {
    return CIniFile(std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

std::string ToText(const CIniFile& ini) {
    auto bytes = ini.Serialize();
    return std::string(bytes.begin(), bytes.end());
}

TEST(CIniFile, LookupFollowsProfileRules) {
    CIniFile ini = FromText("; comment\r\n"
                            "  [ kestrin windows ]  junk\r\n"
                            "IDS_A = first \t\r\n"
                            "ids_a=second\r\n"
                            ";IDS_B=commented out\r\n"
                            "  IDS_B=  spaced  \r\n"
                            "IDS_Q=\" keep spaces \"\r\n"
                            "IDS_EQ=a=b;c\r\n"
                            "[broken section\r\n"
                            "IDS_AFTER_BROKEN=here\n"
                            "[Other]\r"
                            "IDS_A=other\n"
                            "[KESTRIN WINDOWS]\n"
                            "IDS_ONLY_IN_DUP=x");
    struct Case {
        const char* section;
        const char* key;
        std::optional<std::string> want;
    } cases[] = {
        {"Kestrin Windows", "IDS_A", "first"}, // trimmed; the first of two spellings wins
        {"KESTRIN WINDOWS", "Ids_a", "first"},
        {"Kestrin Windows", "IDS_B", "spaced"}, // the ";" line is a comment, not a key
        {"Kestrin Windows", "IDS_Q", " keep spaces "},
        {"Kestrin Windows", "IDS_EQ", "a=b;c"},
        {"Kestrin Windows", "IDS_AFTER_BROKEN", "here"}, // an unclosed header starts nothing
        {"Other", "IDS_A", "other"},                    // a lone "\r" ends a line too
        {"Kestrin Windows", "IDS_ONLY_IN_DUP", std::nullopt}, // only the first section counts
        {"Missing", "IDS_A", std::nullopt},
    };
    for (const Case& c : cases) EXPECT_EQ(ini.Get(c.section, c.key), c.want) << c.section << "/" << c.key;
    EXPECT_EQ(ini.Entries("kestrin windows").size(), 5u); // "ids_a" is not a second key
}

TEST(CIniFile, WriteReplacesInPlaceAndKeepsTheRest) {
    const std::string base = "; settings\n[Kestrin Windows]\n  ids_language = 0   ; old\nOther=keep\n\n[Next]\nIDS_LANGUAGE=9\n";
    struct Case {
        std::string before;
        const char* section;
        const char* key;
        const char* value;
        std::string want;
    } cases[] = {
        // Existing key: spelling and indentation stay, only the value changes.
        {base, "KESTRIN WINDOWS", "IDS_LANGUAGE", "2",
         "; settings\n[Kestrin Windows]\n  ids_language =2\nOther=keep\n\n[Next]\nIDS_LANGUAGE=9\n"},
        // Missing key: after the section's last line, before the blank line.
        {base, "Kestrin Windows", "New", "v",
         "; settings\n[Kestrin Windows]\n  ids_language = 0   ; old\nOther=keep\nNew=v\n\n[Next]\nIDS_LANGUAGE=9\n"},
        // Missing section: appended in the file's own line endings.
        {base, "Added", "K", "v", base + "\n[Added]\nK=v\n"},
        // A value cannot carry a line break into the file.
        {"[S]\nk=1\n", "S", "k", "3\r\n[Evil]", "[S]\nk=3\n"},
        {"[S]\r\na=1", "S", "b", "2", "[S]\r\na=1\r\nb=2\r\n"},
        {"", "Kestrin Windows", "IDS_LANGUAGE", "4", "[Kestrin Windows]\r\nIDS_LANGUAGE=4\r\n"},
        // Byte-order marks and UTF-16LE survive a write.
        {"\xEF\xBB\xBF[S]\nk=v\n", "S", "k", "w", "\xEF\xBB\xBF[S]\nk=w\n"},
        {test::Utf16LeWithBom("[S]\r\nA=Gr\xC3\xB6\xC3\x9F" "e\r\nk=1\r\n"), "s", "K", "2",
         test::Utf16LeWithBom("[S]\r\nA=Gr\xC3\xB6\xC3\x9F" "e\r\nk=2\r\n")},
    };
    for (const Case& c : cases) {
        CIniFile ini = FromText(c.before);
        ini.Set(c.section, c.key, c.value);
        EXPECT_EQ(ToText(ini), c.want) << c.before;
    }
}

TEST(CIniFile, ProfileReadCapsLikeAFixedBuffer) {
    test::TempFolder dir;
    std::string path = dir.path + "/settings.ini";
    EXPECT_EQ(ReadProfileString("S", "k", path, 100), ""); // missing file
    test::WriteFile(path, "[S]\nk=ab\xF0\x9F\x98\x80" "c\n");
    // size - 1 UTF-16 characters, and a surrogate pair is never split.
    EXPECT_EQ(ReadProfileString("S", "k", path, 4), "ab");
    EXPECT_EQ(ReadProfileString("S", "k", path, 5), "ab\xF0\x9F\x98\x80");
    EXPECT_EQ(ReadProfileString("S", "k", path, 0), "");
    ASSERT_TRUE(WriteProfileString("s", "K", "other", path));
    EXPECT_EQ(test::ReadFile(path), "[S]\nk=other\n");
}

size_t EntryCount(const std::string& dir) {
    namespace fs = std::filesystem;
    return size_t(std::distance(fs::directory_iterator(dir), fs::directory_iterator()));
}

TEST(CIniFile, SaveReplacesTheWholeFileOrLeavesItAlone) {
    test::TempFolder dir;
    std::string path = dir.path + "/settings.ini";
    // Temporaries left by an earlier crash are not used: the write lands.
    test::WriteFile(path + ".new", "[S]\nk=stale\n");
    test::WriteFile(dir.path + "/.settings.ini.Q1w2E3.part", "[S]\nk=stale\n");
    ASSERT_TRUE(WriteProfileString("S", "k", "1", path));
    ASSERT_TRUE(WriteProfileString("S", "k", "2", path));
    EXPECT_EQ(test::ReadFile(path), "[S]\r\nk=2\r\n");
    EXPECT_EQ(ReadProfileString("S", "k", path, 10), "2");
    EXPECT_EQ(EntryCount(dir.path), 3u); // nothing of ours left beside it

    // Something the rename cannot replace (a folder with content) stays as it was.
    test::TempFolder blocked;
    std::string inPlace = blocked.path + "/settings.ini";
    test::WriteFile(inPlace + "/keep", "keep");
    EXPECT_FALSE(WriteProfileString("S", "k", "3", inPlace));
    EXPECT_EQ(test::ReadFile(inPlace + "/keep"), "keep");
    EXPECT_EQ(EntryCount(blocked.path), 1u);
}

} // namespace
} // namespace kestrin::app
