#pragma once
// Language files and settings: every user-visible text is looked up by an "IDS_" identifier in
// the current language file under the program folder.
#include <string>
#include <string_view>

namespace kestrin::app {

inline constexpr const char* kSection = "Kestrin Windows";
inline constexpr const char* kLanguageNames[5] = {"English", "French", "German", "Italian", "Spanish"};

// Program folder, settings file and language file of this process.
struct AppPaths {
    std::string programFolder;
    std::string settingsFile;
    std::string languageFile;
    int languageIndex = 0;
};

// Start-up: program folder, settings file, language index, language file (".ini").
// `programFolder` empty means the running executable's.
AppPaths& InitLanguage(const std::string& programFolder = {});
AppPaths& CurrentPaths();
// Text of `id` in the current language file; empty when missing.
std::string Text(std::string_view id);
// Menu command 40043 + index. Returns false when nothing changed (same language).
bool ChangeLanguage(int index);
// Chooses a language by name ("German") for this process only (command line --lang).
bool UseLanguageByName(std::string_view name);

} // namespace kestrin::app
