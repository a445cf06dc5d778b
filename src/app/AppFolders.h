#pragma once
// Where the program finds the files it ships and where it keeps the user's own: the language
// files are read from the program's data folder; settings.ini and slt.dat live in the
// configuration folder, which is the data folder itself unless that may not be written.
#include <string>

namespace kestrin::app {

inline constexpr const char* kSettingsFileName = "settings.ini";
inline constexpr const char* kUserSignatureFileName = "slt.dat";

// The folder holding Lang/, settings.ini and slt.dat as shipped. `root` is the parent of the
// folder of the program file: a build tree or an unpacked copy keeps them there, an installed
// package in share/kestrin under it.
struct ProgramData {
    std::string folder;
    bool installed = false; // an installed package's share/kestrin: never written to
};
ProgramData FindProgramData(const std::string& root);

// $XDG_CONFIG_HOME/kestrin, else $HOME/.config/kestrin (%APPDATA%\Kestrin on Windows); empty
// when none of these is set.
std::string UserConfigFolder();

// The folder settings.ini and slt.dat are read from and written to: the data folder when it
// is not an installed package's and `dataWritable`; otherwise `userFolder`, made when missing
// and given a copy of each of the data folder's settings.ini and slt.dat it does not have yet.
// The data folder after all when `userFolder` is empty or cannot be made.
std::string ChooseConfigFolder(const ProgramData& data, bool dataWritable, const std::string& userFolder);

} // namespace kestrin::app
