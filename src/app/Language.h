#pragma once
// Language files and settings: every user-visible text is looked up by an "IDS_" identifier in
// the current language file under the program folder. The desktop program keeps its language in
// settings.ini; the command line takes its own from --lang or the environment.
//
// All functions are safe to call from any thread. Text() initialises from the running
// executable's folder on first use when InitLanguage() was not called.
#include <string>
#include <string_view>

namespace kestrin::app {

inline constexpr const char* kSection = "Kestrin Windows";
inline constexpr const char* kLanguageNames[5] = {"English", "French", "German", "Italian", "Spanish"};
inline constexpr int kLanguageCount = 5;
// Settings key holding the language index.
inline constexpr const char* kLanguageKey = "IDS_LANGUAGE";
// Menu command of language 0; language i is kLanguageMenuFirst + i.
inline constexpr int kLanguageMenuFirst = 40043;
// Buffer sizes of the profile reads, in characters including the terminator: the settings value
// keeps at most 99 characters, a text at most 999.
inline constexpr size_t kSettingsBufferChars = 100;
inline constexpr size_t kTextBufferChars = 1000;

// Two-letter codes of the languages, in table order.
inline constexpr const char* kLanguageCodes[5] = {"en", "fr", "de", "it", "es"};

// Program folder, configuration folder, settings file and language file of this process.
struct AppPaths {
    std::string programFolder; // the shipped files: Lang/, and the first settings.ini and slt.dat
    std::string configFolder;  // settings.ini and slt.dat as read and written (see AppFolders.h)
    std::string settingsFile;
    std::string languageFile;
    int languageIndex = 0;
};

// Where the language at start comes from.
enum class LanguageFrom {
    Settings,    // settings.ini (the desktop program)
    Environment, // LANGUAGE, LC_ALL, LC_MESSAGES, LANG (the command line; settings.ini is left alone)
};

// Start-up: program folder, configuration folder, settings file, language index, language file
// (".ini"). `root` empty means the parent of the running executable's folder.
AppPaths& InitLanguage(const std::string& root = {}, LanguageFrom from = LanguageFrom::Settings);
AppPaths& CurrentPaths();
// Text of `id` in the current language file; empty when missing. UTF-8.
std::string Text(std::string_view id);
// Whether the current language file was read and holds any text.
bool HaveTexts();
// Menu command 40043 + index. Returns false when nothing changed (same language, or an index
// outside the language table).
bool ChangeLanguage(int index);
// Chooses a language by name ("German", any case) for this process only (command line --lang);
// the settings file is left alone. False for an unknown name.
bool UseLanguageByName(std::string_view name);

// The language the environment asks for: the first entry of LANGUAGE (a ':' list) that names a
// language of the table, else the first of LC_ALL, LC_MESSAGES and LANG that is set; English
// when that names none ("C", "POSIX", another language). Values are locale names such as
// "fr_FR.UTF-8" or "de". `get` reads one variable, null when unset.
int LanguageFromEnvironment(const char* (*get)(const char*));
// Index of a language code or locale name ("fr", "fr_CA.UTF-8"); -1 when it names none.
int LanguageIndexOfLocale(std::string_view locale);

// The language index as start-up reads it from the settings value: leading spaces, an optional
// sign and digits, like the C runtime's string-to-integer conversion; 0 when there is no number.
int ParseLanguageIndex(std::string_view value);

// True when a typed answer to a yes/no question means yes: "y" in any case, or the letter the
// current language offers for yes in "IDS_CLI_YES_NO" (the one after "(", as in " (j/N) ").
bool IsYesAnswer(std::string_view answer);

} // namespace kestrin::app
