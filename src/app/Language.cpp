#include "app/Language.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <unordered_map>

#include "app/AppFolders.h"
#include "app/CIniFile.h"
#include "platform/Platform.h"
#include "util/Text.h"

namespace kestrin::app {

namespace {

#ifdef _WIN32
constexpr const char* kSep = "\\";
#else
constexpr const char* kSep = "/";
#endif

// Everything the lookups share. Texts are looked up very often (every label, every progress
// update), so the current language file is parsed once into a map and parsed again only when
// its path changes.
struct LanguageState {
    std::mutex lock;
    bool initialised = false;
    AppPaths paths;
    std::string cachedFile;
    bool cacheValid = false;
    std::unordered_map<std::string, std::string> texts; // ASCII-lower-case id → text
};

LanguageState& State() {
    static LanguageState s;
    return s;
}

// "%s\\%s\\%s%s": program folder, "Lang", language name, extension.
std::string LanguageFilePath(const std::string& folder, int index, const char* extension) {
    return folder + kSep + "Lang" + kSep + kLanguageNames[index] + extension;
}

void InitLocked(LanguageState& s, const std::string& root, LanguageFrom from) {
    s.paths = AppPaths{};
    ProgramData data = FindProgramData(root.empty() ? platform::ProgramFolder() : root);
    s.paths.programFolder = data.folder;
    s.paths.configFolder = ChooseConfigFolder(data, platform::FolderWritable(data.folder), UserConfigFolder());
    s.paths.settingsFile = s.paths.configFolder + kSep + kSettingsFileName;
    int index = from == LanguageFrom::Environment
                    ? LanguageFromEnvironment(+[](const char* name) -> const char* { return std::getenv(name); })
                    : ParseLanguageIndex(ReadProfileString(kSection, kLanguageKey, s.paths.settingsFile,
                                                           kSettingsBufferChars));
    // Only 0 to 4 are ever written, and the value is used as an index into the language table
    // without a check; a hand-edited value outside the table falls back to English instead of
    // reading past it.
    if (index < 0 || index >= kLanguageCount) index = 0;
    s.paths.languageIndex = index;
    s.paths.languageFile = LanguageFilePath(s.paths.programFolder, index, ".ini");
    s.cacheValid = false;
    s.initialised = true;
}

void EnsureInitLocked(LanguageState& s) {
    if (!s.initialised) InitLocked(s, {}, LanguageFrom::Settings);
}

void LoadTextsLocked(LanguageState& s) {
    if (s.cacheValid && s.cachedFile == s.paths.languageFile) return;
    s.texts.clear();
    CIniFile ini;
    // ".INI" after a change and ".ini" at start name the same file on a case-insensitive file
    // system; elsewhere the name is matched without case so both work.
    if (ini.Load(ResolveNoCase(s.paths.languageFile))) {
        for (auto& [key, value] : ini.Entries(kSection))
            s.texts.emplace(AsciiLower(key), CapUtf16Units(value, kTextBufferChars - 1));
    }
    s.cachedFile = s.paths.languageFile;
    s.cacheValid = true;
}

} // namespace

int LanguageIndexOfLocale(std::string_view locale) {
    // "ll", "ll_CC", "ll.codeset", "ll@modifier" and their combinations.
    size_t end = locale.find_first_of("_.@-");
    std::string_view code = locale.substr(0, end);
    for (int i = 0; i < kLanguageCount; ++i)
        if (EqualsNoCase(code, kLanguageCodes[i])) return i;
    return -1;
}

int LanguageFromEnvironment(const char* (*get)(const char*)) {
    if (const char* list = get("LANGUAGE"); list && *list) {
        std::string_view rest = list;
        while (!rest.empty()) {
            size_t colon = rest.find(':');
            int index = LanguageIndexOfLocale(rest.substr(0, colon));
            if (index >= 0) return index;
            if (colon == std::string_view::npos) break;
            rest.remove_prefix(colon + 1);
        }
    }
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = get(name);
        if (!value || !*value) continue;
        int index = LanguageIndexOfLocale(value);
        return index < 0 ? 0 : index;
    }
    return 0;
}

int ParseLanguageIndex(std::string_view value) {
    size_t i = 0;
    while (i < value.size() && (value[i] == ' ' || value[i] == '\t')) ++i;
    bool negative = false;
    if (i < value.size() && (value[i] == '+' || value[i] == '-')) negative = value[i++] == '-';
    long long n = 0;
    for (; i < value.size() && value[i] >= '0' && value[i] <= '9'; ++i) {
        n = n * 10 + (value[i] - '0');
        if (n > 0x7FFFFFFF) return 0; // far outside the table either way
    }
    return int(negative ? -n : n);
}

AppPaths& InitLanguage(const std::string& root, LanguageFrom from) {
    LanguageState& s = State();
    std::lock_guard g(s.lock);
    InitLocked(s, root, from);
    return s.paths;
}

AppPaths& CurrentPaths() {
    LanguageState& s = State();
    std::lock_guard g(s.lock);
    EnsureInitLocked(s);
    return s.paths;
}

std::string Text(std::string_view id) {
    LanguageState& s = State();
    std::lock_guard g(s.lock);
    EnsureInitLocked(s);
    LoadTextsLocked(s);
    auto it = s.texts.find(AsciiLower(id));
    return it == s.texts.end() ? std::string() : it->second;
}

bool HaveTexts() {
    LanguageState& s = State();
    std::lock_guard g(s.lock);
    EnsureInitLocked(s);
    LoadTextsLocked(s);
    return !s.texts.empty();
}

bool ChangeLanguage(int index) {
    LanguageState& s = State();
    std::lock_guard g(s.lock);
    EnsureInitLocked(s);
    if (index == s.paths.languageIndex) return false;
    // Menu commands only produce 0 to 4; anything else would index past the table.
    if (index < 0 || index >= kLanguageCount) return false;
    s.paths.languageIndex = index;
    s.paths.languageFile = LanguageFilePath(s.paths.programFolder, index, ".INI");
    char digits[16];
    std::snprintf(digits, sizeof digits, "%d", index);
    // A settings file that cannot be written (read-only program folder) only means the choice is
    // not remembered; the language still changes for this run.
    WriteProfileString(kSection, kLanguageKey, digits, s.paths.settingsFile);
    return true;
}

bool UseLanguageByName(std::string_view name) {
    LanguageState& s = State();
    std::lock_guard g(s.lock);
    EnsureInitLocked(s);
    for (int i = 0; i < kLanguageCount; ++i) {
        if (!EqualsNoCase(name, kLanguageNames[i])) continue;
        s.paths.languageIndex = i;
        s.paths.languageFile = LanguageFilePath(s.paths.programFolder, i, ".ini");
        return true;
    }
    return false;
}

bool IsYesAnswer(std::string_view answer) {
    size_t b = answer.find_first_not_of(" \t\r\n");
    if (b == std::string_view::npos) return false;
    std::string_view first = answer.substr(b, 1);
    if (EqualsNoCase(first, "y")) return true;
    std::string prompt = Text("IDS_CLI_YES_NO");
    size_t open = prompt.find('(');
    if (open == std::string::npos || open + 1 >= prompt.size()) return false;
    std::string_view yes = std::string_view(prompt).substr(open + 1, 1);
    // "N" is the default answer's letter; a prompt offering it for yes would be a broken text.
    return !EqualsNoCase(yes, "n") && EqualsNoCase(first, yes);
}

} // namespace kestrin::app
