#include "app/Language.h"

#include <cctype>
#include <filesystem>
#include <map>
#include <optional>
#include <set>

#include <gtest/gtest.h>

#include "AppTestUtil.h"
#include "app/AppFolders.h"
#include "app/CIniFile.h"
#include "app/Startup.h"
#include "platform/Platform.h"
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
        EXPECT_FALSE(StartupCheck(first).refused);
        StartupRefusal r = StartupCheck(second);
        EXPECT_TRUE(r.refused);
        EXPECT_EQ(r.caption, "K");
        EXPECT_EQ(r.message, "Running.\nClose it.\nRetry.");
        setenv("XDG_RUNTIME_DIR", (runtime.path + "/missing").c_str(), 1);
        EXPECT_EQ(StartupCheck(third).message, "Failed.\nRetry.");
    }
    setenv("XDG_RUNTIME_DIR", runtime.path.c_str(), 1);
    {
        platform::InstanceLock again; // the first instance has ended
        EXPECT_FALSE(StartupCheck(again).refused);
        // Without language files the second start is refused all the same, in English.
        fs::remove_all(m_dir.path + "/Lang");
        InitLanguage(m_dir.path);
        platform::InstanceLock second;
        StartupRefusal r = StartupCheck(second);
        EXPECT_TRUE(r.refused);
        EXPECT_TRUE(r.otherInstance);
        EXPECT_EQ(r.caption, "Kestrin");
        EXPECT_NE(r.message.find("already running"), std::string::npos) << r.message;
    }
    if (oldRuntime.empty()) unsetenv("XDG_RUNTIME_DIR");
    else setenv("XDG_RUNTIME_DIR", oldRuntime.c_str(), 1);
}

// Sets environment variables for one test and puts the old values back.
class ScopedEnv {
public:
    void Set(const char* name, const char* value) {
        if (!m_old.count(name)) {
            const char* old = getenv(name);
            m_old[name] = old ? std::optional<std::string>(old) : std::nullopt;
        }
        if (value) setenv(name, value, 1);
        else unsetenv(name);
    }
    ~ScopedEnv() {
        for (auto& [name, value] : m_old) {
            if (value) setenv(name.c_str(), value->c_str(), 1);
            else unsetenv(name.c_str());
        }
    }

private:
    std::map<std::string, std::optional<std::string>> m_old;
};

TEST(LanguageEnvironment, LanguageListThenLocaleVariables) {
    struct Case {
        const char *language, *lcAll, *lcMessages, *lang;
        int index;
    } cases[] = {
        {nullptr, nullptr, nullptr, nullptr, 0},
        {"pt:de_AT:fr", nullptr, nullptr, "es_ES.UTF-8", 2}, // first known entry of the list
        {"pt", nullptr, nullptr, "es_ES.UTF-8", 4},           // none known: the locale decides
        {"", "fr_CA.UTF-8", "it_IT", "es_ES", 1},
        {nullptr, "", "it_IT@euro", "es_ES", 3},
        {nullptr, nullptr, nullptr, "C.UTF-8", 0},
        {nullptr, "POSIX", nullptr, "de_DE", 0}, // LC_ALL outranks LANG even when it names no language
        {nullptr, nullptr, nullptr, "ES", 4},
    };
    for (const Case& c : cases) {
        ScopedEnv env;
        env.Set("LANGUAGE", c.language);
        env.Set("LC_ALL", c.lcAll);
        env.Set("LC_MESSAGES", c.lcMessages);
        env.Set("LANG", c.lang);
        EXPECT_EQ(LanguageFromEnvironment(+[](const char* n) -> const char* { return getenv(n); }), c.index)
            << (c.language ? c.language : "-") << " " << (c.lcAll ? c.lcAll : "-") << " "
            << (c.lcMessages ? c.lcMessages : "-") << " " << (c.lang ? c.lang : "-");
    }
}

TEST_F(LanguageTest, CommandLineIgnoresTheDesktopProgramsLanguage) {
    WriteFile(Settings(), "[Kestrin Windows]\nIDS_LANGUAGE=2\n");
    WriteFile(Lang("French.ini"), "[Kestrin Windows]\nIDS_SCANNING=Analyse\n");
    ScopedEnv env;
    env.Set("LANGUAGE", nullptr);
    env.Set("LC_ALL", nullptr);
    env.Set("LC_MESSAGES", "fr_FR.UTF-8");
    EXPECT_EQ(InitLanguage(m_dir.path, LanguageFrom::Environment).languageIndex, 1);
    EXPECT_EQ(Text("IDS_SCANNING"), "Analyse");
    env.Set("LC_MESSAGES", "C");
    env.Set("LANG", nullptr);
    EXPECT_EQ(InitLanguage(m_dir.path, LanguageFrom::Environment).languageIndex, 0);
    EXPECT_EQ(InitLanguage(m_dir.path).languageIndex, 2); // the desktop program's own choice
}

// The program's shipped files as a package installs them: the parent of bin/ holds share/kestrin.
class ConfigFolderTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(m_root.path.empty());
        WriteFile(Data() + "/Lang/English.ini", "[Kestrin Windows]\nIDS_SCANNING=Scanning\n");
        WriteFile(Data() + "/Lang/German.ini", "[Kestrin Windows]\nIDS_SCANNING=Suche\n");
        WriteFile(Data() + "/settings.ini", "[Kestrin Windows]\nIDS_LANGUAGE=0\n");
        WriteFile(Data() + "/slt.dat", "shipped list");
        m_env.Set("XDG_CONFIG_HOME", m_home.path.c_str());
    }
    std::string Data() const { return m_root.path + "/share/kestrin"; }
    std::string User() const { return m_home.path + "/kestrin"; }
    test::TempFolder m_root, m_home;
    ScopedEnv m_env;
};

TEST_F(ConfigFolderTest, InstalledProgramKeepsSettingsInTheUsersFolder) {
    AppPaths& p = InitLanguage(m_root.path);
    EXPECT_EQ(p.programFolder, Data());
    EXPECT_EQ(p.configFolder, User());
    EXPECT_EQ(p.settingsFile, User() + "/settings.ini");
    EXPECT_EQ(p.languageFile, Data() + "/Lang/English.ini");
    EXPECT_EQ(ReadFile(User() + "/slt.dat"), "shipped list");

    EXPECT_TRUE(ChangeLanguage(2));
    EXPECT_EQ(Text("IDS_SCANNING"), "Suche");
    EXPECT_EQ(ReadFile(Data() + "/settings.ini"), "[Kestrin Windows]\nIDS_LANGUAGE=0\n");
    // The next start reads the user's copies, which are never replaced by the shipped ones.
    WriteFile(User() + "/slt.dat", "user list");
    EXPECT_EQ(InitLanguage(m_root.path).languageIndex, 2);
    EXPECT_EQ(ReadFile(User() + "/slt.dat"), "user list");
}

TEST_F(ConfigFolderTest, ChoiceFollowsWhetherTheProgramFolderMayBeWritten) {
    ProgramData portable{m_root.path + "/portable", false};
    WriteFile(portable.folder + "/settings.ini", "[Kestrin Windows]\nIDS_LANGUAGE=3\n");
    EXPECT_EQ(ChooseConfigFolder(portable, true, User()), portable.folder);
    EXPECT_FALSE(fs::exists(User()));
    EXPECT_EQ(ChooseConfigFolder(portable, false, User()), User());
    EXPECT_EQ(ReadFile(User() + "/settings.ini"), "[Kestrin Windows]\nIDS_LANGUAGE=3\n");
    EXPECT_FALSE(fs::exists(User() + "/slt.dat")); // nothing to copy: missing as in the program folder
    // No home for the user's copies: the program folder is the only place there is.
    EXPECT_EQ(ChooseConfigFolder(portable, false, ""), portable.folder);
    WriteFile(m_home.path + "/blocked", "a file, not a folder");
    EXPECT_EQ(ChooseConfigFolder(portable, false, m_home.path + "/blocked/kestrin"), portable.folder);

    EXPECT_FALSE(platform::FolderWritable(m_root.path + "/missing"));
    EXPECT_TRUE(platform::FolderWritable(portable.folder));
    fs::permissions(portable.folder, fs::perms::owner_read | fs::perms::owner_exec);
    if (geteuid() != 0) {
        EXPECT_FALSE(platform::FolderWritable(portable.folder)); // root writes anyway
    }
    fs::permissions(portable.folder, fs::perms::owner_all);
}

TEST(ConfigFolder, UserFolderFromTheEnvironment) {
    ScopedEnv env;
    env.Set("XDG_CONFIG_HOME", "/cfg");
    env.Set("HOME", "/home/u");
    EXPECT_EQ(UserConfigFolder(), "/cfg/kestrin");
    env.Set("XDG_CONFIG_HOME", "relative");
    EXPECT_EQ(UserConfigFolder(), "/home/u/.config/kestrin");
    env.Set("XDG_CONFIG_HOME", nullptr);
    env.Set("HOME", nullptr);
    EXPECT_EQ(UserConfigFolder(), "");
}

} // namespace
} // namespace kestrin::app
