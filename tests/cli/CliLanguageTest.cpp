// The command line's language: --lang, else the environment; never the desktop program's choice
// in settings.ini.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// A copy of the program laid out as the build does, whose settings.ini says German.
struct ProgramCopy {
    ProgramCopy() {
        std::string tmpl = testing::TempDir() + "kestrin-cli-lang-XXXXXX";
        if (!::mkdtemp(tmpl.data())) return;
        root = tmpl;
        fs::create_directories(root / "bin");
        fs::copy_file(fs::path(KESTRIN_BINARY_DIR) / "bin" / "kestrin", root / "bin" / "kestrin");
        fs::copy(fs::path(KESTRIN_SOURCE_DIR) / "data" / "Lang", root / "Lang");
        std::ofstream(root / "settings.ini") << "[Kestrin Windows]\nIDS_LANGUAGE=2\n";
    }
    ~ProgramCopy() {
        std::error_code ec;
        if (!root.empty()) fs::remove_all(root, ec);
    }
    // stderr of `kestrin ARGS` under the given environment assignments.
    std::string Run(const std::string& env, const std::string& args) const {
        std::string cmd = "env -u LANGUAGE -u LC_ALL -u LC_MESSAGES -u LANG " + env + " '" +
                          (root / "bin" / "kestrin").string() + "' " + args + " 2>&1 >/dev/null </dev/null";
        std::string out;
        if (FILE* p = popen(cmd.c_str(), "r")) {
            char buf[4096];
            size_t n;
            while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
            pclose(p);
        }
        return out;
    }
    fs::path root;
};

TEST(CliLanguage, EnvironmentOrOptionNeverTheDesktopSetting) {
    ProgramCopy program;
    ASSERT_FALSE(program.root.empty());
    EXPECT_NE(program.Run("", "frobnicate").find("unknown command"), std::string::npos);
    EXPECT_NE(program.Run("LANG=C.UTF-8", "frobnicate").find("unknown command"), std::string::npos);
    EXPECT_NE(program.Run("LANG=fr_FR.UTF-8", "frobnicate").find("commande inconnue"), std::string::npos);
    EXPECT_NE(program.Run("LANGUAGE=it:fr LANG=es_ES.UTF-8", "frobnicate").find("comando sconosciuto"),
              std::string::npos);
    // --lang outranks the environment, with any verb.
    std::string spanish = program.Run("LANG=fr_FR.UTF-8", "scan /nonexistent --mode nothing --lang spanish");
    EXPECT_NE(spanish.find("modo desconocido"), std::string::npos) << spanish;
    std::string italian = program.Run("", "partitions /nonexistent --lang Italian --lang Klingon");
    EXPECT_NE(italian.find("unknown language"), std::string::npos) << italian; // the last --lang counts
}

} // namespace
