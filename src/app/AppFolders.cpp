#include "app/AppFolders.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace kestrin::app {

namespace fs = std::filesystem;

namespace {

bool IsFolder(const fs::path& p) {
    std::error_code ec;
    return fs::is_directory(p, ec);
}

fs::path U8(const std::string& s) { return fs::path(std::u8string(s.begin(), s.end())); }

std::string Env(const char* name) {
    const char* v = std::getenv(name);
    return v ? std::string(v) : std::string();
}

} // namespace

ProgramData FindProgramData(const std::string& root) {
    if (IsFolder(U8(root) / "Lang")) return {root, false};
    fs::path shared = U8(root) / "share" / "kestrin";
    if (IsFolder(shared / "Lang")) {
        std::u8string s = shared.u8string();
        return {std::string(s.begin(), s.end()), true};
    }
    return {root, false};
}

std::string UserConfigFolder() {
#ifdef _WIN32
    std::string base = Env("APPDATA");
    return base.empty() ? std::string() : base + "\\Kestrin";
#else
    // Only an absolute XDG_CONFIG_HOME counts; a relative one is to be ignored.
    std::string base = Env("XDG_CONFIG_HOME");
    if (base.empty() || base[0] != '/') {
        std::string home = Env("HOME");
        if (home.empty()) return {};
        base = home + "/.config";
    }
    return base + "/kestrin";
#endif
}

std::string ChooseConfigFolder(const ProgramData& data, bool dataWritable, const std::string& userFolder) {
    if ((!data.installed && dataWritable) || userFolder.empty()) return data.folder;
    std::error_code ec;
    fs::path user = U8(userFolder);
    fs::create_directories(user, ec);
    if (!IsFolder(user)) return data.folder;
    // First use: the shipped settings and signature list become the user's own. A file the
    // user already has is never replaced; one that cannot be copied is simply missing, as it
    // would be in the program folder.
    for (const char* name : {kSettingsFileName, kUserSignatureFileName}) {
        fs::path from = U8(data.folder) / name, to = user / name;
        if (fs::exists(to, ec) || !fs::is_regular_file(from, ec)) continue;
        fs::copy_file(from, to, fs::copy_options::skip_existing, ec);
        if (!ec) fs::permissions(to, fs::perms::owner_read | fs::perms::owner_write, fs::perm_options::add, ec);
    }
    return userFolder;
}

} // namespace kestrin::app
