// The command line's language: --lang, else the environment; never the desktop program's choice
// in settings.ini.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "TestImages.h"
#include "cli/CliRun.h"
#include "app/Language.h"
#include "session/Texts.h"

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
    // `kestrin ARGS` under the given environment assignments, the environment's language unset.
    kestrin::test::CliResult Exec(const std::string& env, const std::string& args) const {
        return kestrin::test::RunShell("env -u LANGUAGE -u LC_ALL -u LC_MESSAGES -u LANG " + env + " " +
                                       kestrin::test::Quote((root / "bin" / "kestrin").string()) + " " + args);
    }
    // Its messages alone.
    std::string Run(const std::string& env, const std::string& args) const { return Exec(env, args).err; }
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

// The entries of a language file (CRLF lines, "ID=text").
std::map<std::string, std::string> ReadTexts(const std::string& language) {
    std::ifstream f(fs::path(KESTRIN_SOURCE_DIR) / "data" / "Lang" / (language + ".ini"));
    std::map<std::string, std::string> texts;
    std::string line;
    while (std::getline(f, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        size_t eq = line.find('=');
        if (line.rfind("IDS_", 0) == 0 && eq != std::string::npos) texts[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return texts;
}

std::string Quote(const std::string& s) { return "'" + s + "'"; }

TEST(CliLanguage, FrenchErrorsCarryNoEnglishSentence) {
    ProgramCopy program;
    ASSERT_FALSE(program.root.empty());
    const std::string img = kestrin::test::UnpackImage("disk-mbr");
    ASSERT_FALSE(img.empty());
    const std::string out = (program.root / "out").string();
    const std::string runs[] = {
        "partitions /nonexistent/disk.img",
        "scan " + Quote(img) + " --partition 9 --quiet",
        "scan " + Quote(img) + " --partition 1 --quiet --json " + Quote(img),
        "scan " + Quote(img) + " --partition 1 --quiet --json " + Quote(out + ".json") + " --session " + Quote(out + ".json"),
        "cat " + Quote(img) + " --partition all docs/a.txt",
        "cat " + Quote(img) + " --partition 1 no/such/file.txt",
        "recover " + Quote(img) + " --partition 1",
        "recover " + Quote(img) + " --partition 1 --zip " + Quote(out + ".txt"),
        "recover " + Quote(img) + " --partition all --zip " + Quote(out + ".zip"),
        "recover " + Quote(img) + " --partition 1 --to " + Quote(out) + " --on-collision never",
        "image " + Quote(img) + " --partition 9 " + Quote(out + ".img"),
        "signatures list --mode nothing",
    };
    // Every stretch of three words or more between the arguments of an English text.
    std::vector<std::string> sentences;
    for (const auto& [id, text] : ReadTexts("English")) {
        std::string rest = text;
        for (size_t at; !rest.empty();) {
            at = rest.find("%s");
            std::string piece = rest.substr(0, at);
            rest = at == std::string::npos ? "" : rest.substr(at + 2);
            while (!piece.empty() && (piece.front() == ' ' || piece.front() == '"')) piece.erase(0, 1);
            while (!piece.empty() && (piece.back() == ' ' || piece.back() == '"')) piece.pop_back();
            if (std::count(piece.begin(), piece.end(), ' ') >= 2) sentences.push_back(piece);
        }
    }
    ASSERT_GT(sentences.size(), 100u);
    for (const std::string& args : runs) {
        std::string said = program.Run("", args + " --lang French");
        EXPECT_GT(said.size(), 20u) << args << "\n" << said;
        for (const std::string& sentence : sentences)
            EXPECT_EQ(said.find(sentence), std::string::npos) << args << "\n" << said;
    }
    // Every run was refused before it wrote anything.
    EXPECT_EQ(std::distance(fs::directory_iterator(program.root), fs::directory_iterator()), 3);
}

TEST(CliLanguage, EveryTextIdOfTheCommandLineIsInEveryLanguage) {
    const std::regex idPattern("\"(IDS_[A-Z0-9_]+)\"");
    std::vector<std::string> ids;
    // The command line's own files, and the partition list it prints from the session layer.
    std::vector<fs::path> files{fs::path(KESTRIN_SOURCE_DIR) / "src" / "session" / "Source.cpp"};
    for (const auto& entry : fs::directory_iterator(fs::path(KESTRIN_SOURCE_DIR) / "src" / "cli"))
        files.push_back(entry.path());
    for (const fs::path& file : files) {
        std::ifstream f(file);
        std::stringstream text;
        text << f.rdbuf();
        const std::string source = text.str();
        for (std::sregex_iterator m(source.begin(), source.end(), idPattern), end; m != end; ++m)
            ids.push_back((*m)[1]);
    }
    ASSERT_GT(ids.size(), 50u);
    for (const char* language : {"English", "French", "German", "Italian", "Spanish"}) {
        const auto texts = ReadTexts(language);
        for (const std::string& id : ids) {
            auto it = texts.find(id);
            EXPECT_TRUE(it != texts.end() && !it->second.empty()) << id << " missing from " << language;
        }
    }
}

// stdout and stderr of `kestrin ARGS`, the environment's language unset.
std::string RunBoth(const ProgramCopy& program, const std::string& args) {
    kestrin::test::CliResult r = program.Exec("", args);
    return r.out + r.err;
}

// The description column of a help text (from column 30, as the parser lays it out), and the
// verbs it lists under `commandsHeading`.
void ReadHelp(const std::string& help, const std::string& commandsHeading, std::vector<std::string>& descriptions,
              std::vector<std::string>& verbs) {
    std::istringstream in(help);
    std::string line, section;
    while (std::getline(in, line)) {
        if (!line.empty() && line[0] != ' ' && line.back() == ':') section = line.substr(0, line.size() - 1);
        if (line.size() <= 30 || line.rfind("  ", 0) != 0 || line[29] != ' ' || line[30] == ' ') continue;
        descriptions.push_back(line.substr(30));
        if (section == commandsHeading) verbs.push_back(line.substr(2, line.find(' ', 2) - 2));
    }
}

TEST(CliLanguage, HelpAndParserMessagesSpeakTheChosenLanguage) {
    ProgramCopy program;
    ASSERT_FALSE(program.root.empty());
    for (const char* language : {"English", "French", "German", "Italian", "Spanish"}) {
        const auto texts = ReadTexts(language);
        std::set<std::string> known;
        for (const auto& [id, text] : texts) known.insert(text);
        const std::string commands = texts.at("IDS_CLI_HEADING_COMMANDS");
        // Every verb's help, the nested ones too: each description is a text of the language
        // file, so a verb or option added without its texts shows here.
        std::vector<std::string> pending{""};
        size_t helps = 0;
        while (!pending.empty()) {
            std::string verb = pending.back();
            pending.pop_back();
            std::string help = RunBoth(program, verb + " --help --lang " + language);
            ++helps;
            EXPECT_NE(help.find(texts.at("IDS_CLI_HEADING_USAGE") + ":"), std::string::npos) << verb << help;
            EXPECT_NE(help.find(texts.at("IDS_CLI_HEADING_OPTIONS") + ":"), std::string::npos) << verb << help;
            std::vector<std::string> descriptions, verbs;
            ReadHelp(help, commands, descriptions, verbs);
            EXPECT_FALSE(descriptions.empty()) << verb << help;
            for (const std::string& d : descriptions)
                EXPECT_TRUE(known.count(d)) << language << ", kestrin " << verb << ": no text for \"" << d << "\"";
            for (const std::string& v : verbs) pending.push_back(verb.empty() ? v : verb + " " + v);
        }
        EXPECT_GE(helps, 12u) << language;

        // The parser's refusals: its sentence in the language, the names it quotes kept.
        // --lang first: the parser would take it as the value an option at the end lacks.
        auto said = [&](const std::string& args) { return RunBoth(program, "--lang " + std::string(language) + " " + args); };
        auto text = [&](const char* id, const std::string& arg) {
            std::string t = texts.at(id);
            return t.substr(0, t.find("%s")) + arg;
        };
        const std::string missing = said("scan");
        EXPECT_NE(missing.find(text("IDS_CLI_ERR_REQUIRED", "SOURCE")), std::string::npos) << missing;
        EXPECT_NE(missing.find(text("IDS_CLI_ERR_SEE_HELP", "--help")), std::string::npos) << missing;
        const std::string extra = said("scan x.img --frobnicate");
        EXPECT_NE(extra.find(text("IDS_CLI_ERR_NOT_EXPECTED", "--frobnicate")), std::string::npos) << extra;
        const std::string noValue = said("scan x.img --partition");
        EXPECT_NE(noValue.find(text("IDS_CLI_ERR_VALUE_MISSING", "--partition")), std::string::npos) << noValue;
        if (std::string(language) != "English") {
            for (const std::string& out : {missing, extra, noValue})
                EXPECT_EQ(out.find("Run with"), std::string::npos) << out;
        }
    }
}

TEST(CliLanguage, AMissingTextIsEmptyUnlessNoLanguageFileWasRead) {
    std::string tmpl = testing::TempDir() + "kestrin-texts-XXXXXX";
    ASSERT_TRUE(::mkdtemp(tmpl.data()));
    const fs::path root = tmpl;
    fs::create_directories(root / "with" / "Lang");
    fs::create_directories(root / "without");
    std::ofstream(root / "with" / "Lang" / "English.ini") << "[Kestrin Windows]\r\nIDS_KESTRIN=Kestrin\r\n";
    kestrin::app::InitLanguage((root / "with").string());
    EXPECT_EQ(kestrin::T("IDS_KESTRIN", "fallback"), "Kestrin");
    EXPECT_EQ(kestrin::T("IDS_NOT_IN_THE_FILE", "fallback"), "");
    // A build whose language files were never copied still says something.
    kestrin::app::InitLanguage((root / "without").string());
    EXPECT_EQ(kestrin::T("IDS_KESTRIN", "fallback"), "fallback");
    kestrin::app::InitLanguage();
    std::error_code ec;
    fs::remove_all(root, ec);
}

} // namespace
