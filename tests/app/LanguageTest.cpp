#include "app/Language.h"

#include <cctype>
#include <filesystem>
#include <map>
#include <set>

#include <gtest/gtest.h>

#include "AppTestUtil.h"
#include "app/CIniFile.h"
#include "app/Startup.h"
#include "util/Text.h"

namespace kestrin::app {
namespace {

namespace fs = std::filesystem;
using test::ReadFile;
using test::WriteFile;

// Every "IDS_..." identifier in a piece of source text.
std::vector<std::string> Identifiers(const std::string& code) {
    std::vector<std::string> out;
    auto isIdChar = [](char c) { return std::isalnum(uint8_t(c)) || c == '_'; };
    for (size_t at = code.find("IDS_"); at != std::string::npos; at = code.find("IDS_", at + 4)) {
        if (at > 0 && isIdChar(code[at - 1])) continue;
        size_t end = at + 4;
        while (end < code.size() && isIdChar(code[end])) ++end;
        if (end > at + 4) out.push_back(code.substr(at, end - at));
    }
    return out;
}

// printf conversions of a text, in order ("%%" ignored).
std::string Conversions(const std::string& s) {
    std::string out;
    for (size_t i = 0; i + 1 < s.size(); ++i)
        if (s[i] == '%' && s[++i] != '%') out += s.substr(i - 1, 2);
    return out;
}

TEST(LanguageFiles, ShippedFilesAgreeAndCoverTheSource) {
    std::map<std::string, std::string> english; // lower-case id → text
    for (const char* name : kLanguageNames) {
        CIniFile ini;
        ASSERT_TRUE(ini.Load(std::string(KESTRIN_SOURCE_DIR) + "/data/Lang/" + name + ".ini")) << name;
        std::map<std::string, std::string> texts;
        for (auto& [key, value] : ini.Entries(kSection)) {
            EXPECT_FALSE(value.empty()) << name << ": " << key;
            texts[AsciiLower(key)] = value;
        }
        if (english.empty()) english = texts;
        ASSERT_EQ(texts.size(), english.size()) << name;
        for (auto& [id, text] : texts) {
            ASSERT_TRUE(english.count(id)) << name << ": " << id;
            // A translation that drops or reorders a conversion would misformat or crash printf.
            EXPECT_EQ(Conversions(text), Conversions(english[id])) << name << ": " << id;
        }
    }
    // Every identifier the program looks up needs an English text.
    size_t filesSeen = 0;
    for (auto& entry : fs::recursive_directory_iterator(fs::path(KESTRIN_SOURCE_DIR) / "src")) {
        auto ext = entry.path().extension();
        if (!entry.is_regular_file() || (ext != ".cpp" && ext != ".h")) continue;
        ++filesSeen;
        for (const std::string& id : Identifiers(ReadFile(entry.path().string())))
            EXPECT_TRUE(english.count(AsciiLower(id))) << id << " used in " << entry.path();
    }
    EXPECT_GT(filesSeen, 10u);
}

// A program folder with small language files; German is UTF-16LE, as the lookup must not care.
class LanguageTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(m_dir.path.empty());
        WriteFile(Lang("English.ini"), "[Kestrin Windows]\r\nIDS_SCANNING=Scanning\r\nIDS_CLI_YES_NO=\" (y/N) \"\r\n");
        WriteFile(Lang("German.ini"), test::Utf16LeWithBom("[Kestrin Windows]\r\nIDS_SCANNING=Suche l\xC3\xA4uft\r\n"
                                                           "IDS_CLI_YES_NO=\" (j/N) \"\r\n"));
        WriteFile(Lang("Italian.ini"), "[Kestrin Windows]\nIDS_LONG=" + std::string(1500, 'x') + "\n");
    }
    std::string Lang(const std::string& name) const { return m_dir.path + "/Lang/" + name; }
    std::string Settings() const { return m_dir.path + "/settings.ini"; }
    test::TempFolder m_dir;
};

TEST_F(LanguageTest, ChoosingGermanIsRememberedForTheNextStart) {
    WriteFile(Settings(), "; user settings\r\n[Kestrin Windows]\r\nIDS_LANGUAGE=0\r\n[Window]\r\nx=1\r\n");
    AppPaths& p = InitLanguage(m_dir.path);
    EXPECT_EQ(p.settingsFile, Settings());
    EXPECT_EQ(p.languageFile, Lang("English.ini"));
    EXPECT_EQ(Text("IDS_SCANNING"), "Scanning");

    EXPECT_TRUE(ChangeLanguage(2));
    EXPECT_EQ(CurrentPaths().languageFile, Lang("German.INI"));
    EXPECT_EQ(Text("IDS_SCANNING"), "Suche l\xC3\xA4uft"); // reloaded; ".INI" found without case
    EXPECT_EQ(ReadFile(Settings()), "; user settings\r\n[Kestrin Windows]\r\nIDS_LANGUAGE=2\r\n[Window]\r\nx=1\r\n");

    AppPaths& next = InitLanguage(m_dir.path);
    EXPECT_EQ(next.languageIndex, 2);
    EXPECT_EQ(next.languageFile, Lang("German.ini"));
    EXPECT_EQ(Text("ids_scanning"), "Suche l\xC3\xA4uft");
}

TEST_F(LanguageTest, SameLanguageChangesNothing) {
    const std::string settings = "[Kestrin Windows]\nIDS_LANGUAGE =  2 \n";
    WriteFile(Settings(), settings);
    InitLanguage(m_dir.path);
    EXPECT_FALSE(ChangeLanguage(2));
    EXPECT_FALSE(ChangeLanguage(5)); // outside the table: no menu command gives it
    EXPECT_EQ(ReadFile(Settings()), settings); // not even rewritten with the same value
    EXPECT_EQ(CurrentPaths().languageFile, Lang("German.ini"));
}

TEST_F(LanguageTest, SettingsValueBecomesAnIndex) {
    struct Case {
        std::string value;
        int index;
    } cases[] = {
        {"French", 0}, {"3abc", 3}, {"\"1\"", 1}, {"7", 0}, {"-1", 0},
        // Read into 100 characters: 98 zeros and a 4 fit, 99 zeros push the 4 out.
        {std::string(98, '0') + "4", 4}, {std::string(99, '0') + "4", 0},
    };
    for (const Case& c : cases) {
        WriteFile(Settings(), "[kestrin windows]\nids_language=" + c.value + "\n");
        EXPECT_EQ(InitLanguage(m_dir.path).languageIndex, c.index) << c.value;
    }
    fs::remove(Settings());
    EXPECT_EQ(InitLanguage(m_dir.path).languageIndex, 0);
}

TEST_F(LanguageTest, MissingTextsAreEmptyAndLongTextsCapped) {
    WriteFile(Settings(), "[Kestrin Windows]\nIDS_LANGUAGE=3\n");
    InitLanguage(m_dir.path);
    EXPECT_EQ(Text("IDS_NOT_THERE"), "");
    EXPECT_EQ(Text("IDS_LONG"), std::string(999, 'x'));
    EXPECT_TRUE(UseLanguageByName("spanish")); // no such file: every text is empty
    EXPECT_EQ(Text("IDS_SCANNING"), "");
}

TEST_F(LanguageTest, CommandLineLanguageIsNotRemembered) {
    WriteFile(Settings(), "[Kestrin Windows]\nIDS_LANGUAGE=0\n");
    InitLanguage(m_dir.path);
    EXPECT_FALSE(UseLanguageByName("Klingon"));
    EXPECT_FALSE(IsYesAnswer("j"));
    EXPECT_TRUE(UseLanguageByName("GERMAN"));
    EXPECT_EQ(Text("IDS_SCANNING"), "Suche l\xC3\xA4uft");
    EXPECT_EQ(ReadFile(Settings()), "[Kestrin Windows]\nIDS_LANGUAGE=0\n");
    for (const char* yes : {"j", " Ja", "y"}) EXPECT_TRUE(IsYesAnswer(yes)) << yes;
    for (const char* no : {"", "n", "s"}) EXPECT_FALSE(IsYesAnswer(no)) << no;
}

TEST_F(LanguageTest, SecondInstanceIsRefused) {
    WriteFile(Lang("English.ini"), "[Kestrin Windows]\nIDS_KESTRIN=K\nIDS_ALREADY_RUNNING=Running.\n"
                                   "IDS_CLOSE_RUNNING_INSTANCES=Close it.\nIDS_RUNNING3=Retry.\nIDS_FAILED_TO_LAUNCH=Failed.\n");
    fs::remove(Settings());
    InitLanguage(m_dir.path);
    test::TempFolder runtime;
    // The guard lives in the runtime folder; point it at private folders for the test.
    std::string oldRuntime = getenv("XDG_RUNTIME_DIR") ? getenv("XDG_RUNTIME_DIR") : "";
    setenv("XDG_RUNTIME_DIR", runtime.path.c_str(), 1);
    {
        platform::InstanceLock first, second, third;
        EXPECT_EQ(StartupCheck(first).caption, "");
        StartupRefusal r = StartupCheck(second);
        EXPECT_EQ(r.caption, "K");
        EXPECT_EQ(r.message, "Running.\nClose it.\nRetry.");
        setenv("XDG_RUNTIME_DIR", (runtime.path + "/missing").c_str(), 1);
        EXPECT_EQ(StartupCheck(third).message, "Failed.\nRetry.");
    }
    setenv("XDG_RUNTIME_DIR", runtime.path.c_str(), 1);
    platform::InstanceLock again; // the first instance has ended
    EXPECT_EQ(StartupCheck(again).caption, "");
    if (oldRuntime.empty()) unsetenv("XDG_RUNTIME_DIR");
    else setenv("XDG_RUNTIME_DIR", oldRuntime.c_str(), 1);
}

} // namespace
} // namespace kestrin::app
