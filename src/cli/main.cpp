// kestrin: the command-line front end. Verbs register themselves (Verbs.h); this file only
// parses and turns exceptions into clear messages and exit codes.
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>

#include "app/Language.h"
#include "cli/CliHelp.h"
#include "cli/Verbs.h"
#include "session/Texts.h"

namespace {

// The value of --lang anywhere before "--" ("--lang X" or "--lang=X"); empty when not given.
std::string LanguageArgument(int argc, char** argv) {
    std::string lang;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--") break;
        if (a == "--lang" && i + 1 < argc) lang = argv[++i];
        else if (a.rfind("--lang=", 0) == 0) lang = a.substr(7);
    }
    return lang;
}

} // namespace

int main(int argc, char** argv) {
    using namespace kestrin::cli;
    // The command line speaks the language it is asked for, never the one the desktop program
    // keeps in its settings: --lang, else the environment's.
    kestrin::app::InitLanguage({}, kestrin::app::LanguageFrom::Environment);
    std::string lang = LanguageArgument(argc, argv);
    if (!lang.empty() && !kestrin::ChooseLanguage(lang)) {
        std::fprintf(stderr, "kestrin: %s\n",
                     kestrin::Tf("IDS_CLI_UNKNOWN_LANGUAGE", lang,
                                 "unknown language \"%s\" (English, French, German, Italian, Spanish)")
                         .c_str());
        return kExitUsage;
    }
    CLI::App app{"Kestrin: recovers files from NTFS, FAT and exFAT volumes, lost partitions and raw sectors.\n"
                 "Sources are opened read-only, always.",
                 "kestrin"};
    app.set_version_flag("--version", std::string("kestrin ") + KESTRIN_VERSION);
    app.require_subcommand(1);
    // Every verb understands --lang (taken above); the scanning verbs list it as their own.
    app.add_option("--lang", lang, "Language of the texts (English, French, German, Italian, Spanish)");
    app.fallthrough();
    VerbResult result;
    AddPartitionsVerb(app, result);
    AddScanVerbs(app, result);
    AddCatVerb(app, result);
    AddSignaturesVerb(app, result);
    AddRecoverVerbs(app, result);
    AddReportVerb(app, result);
    // Help and the parser's messages in the language chosen above; verbs added later get theirs
    // too, as long as they are added before this line.
    TranslateCommandLine(app);
    // A first word that names no verb gets a message of its own, not "a subcommand is required".
    if (argc > 1 && argv[1][0] != '-') {
        bool known = false;
        std::string verbs;
        for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
            known |= sub->get_name() == argv[1];
            verbs += (verbs.empty() ? "" : ", ") + sub->get_name();
        }
        if (!known) {
            std::fprintf(stderr, "kestrin: %s (%s: %s; %s)\n",
                         kestrin::Tf("IDS_CLI_UNKNOWN_COMMAND", argv[1], "unknown command \"%s\"").c_str(),
                         kestrin::T("IDS_CLI_COMMANDS", "commands").c_str(), verbs.c_str(),
                         kestrin::T("IDS_CLI_SEE_HELP", "see kestrin --help").c_str());
            return kExitUsage;
        }
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        int rc = app.exit(e);
        return rc == 0 ? kExitOk : kExitUsage;
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "kestrin: %s\n", kestrin::T("IDS_CLI_OUT_OF_MEMORY", "out of memory").c_str());
        return kExitUsage;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "kestrin: %s\n", e.what());
        return kExitUsage;
    }
    return result.exitCode;
}
