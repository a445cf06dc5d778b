// kestrin: the command-line front end. Verbs register themselves (Verbs.h); this file only
// parses and turns exceptions into clear messages and exit codes.
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>

#include "cli/Verbs.h"

int main(int argc, char** argv) {
    using namespace kestrin::cli;
    CLI::App app{"Kestrin: recovers files from NTFS, FAT and exFAT volumes, lost partitions and raw sectors.\n"
                 "Sources are opened read-only, always.",
                 "kestrin"};
    app.set_version_flag("--version", std::string("kestrin ") + KESTRIN_VERSION);
    app.require_subcommand(1);
    VerbResult result;
    AddPartitionsVerb(app, result);
    AddScanVerbs(app, result);
    AddCatVerb(app, result);
    AddSignaturesVerb(app, result);
    AddRecoverVerbs(app, result);
    // A first word that names no verb gets a message of its own, not "a subcommand is required".
    if (argc > 1 && argv[1][0] != '-') {
        bool known = false;
        std::string verbs;
        for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
            known |= sub->get_name() == argv[1];
            verbs += (verbs.empty() ? "" : ", ") + sub->get_name();
        }
        if (!known) {
            std::fprintf(stderr, "kestrin: unknown command \"%s\" (commands: %s; see kestrin --help)\n", argv[1],
                         verbs.c_str());
            return kExitUsage;
        }
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        int rc = app.exit(e);
        return rc == 0 ? kExitOk : kExitUsage;
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "kestrin: out of memory\n");
        return kExitUsage;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "kestrin: %s\n", e.what());
        return kExitUsage;
    }
    return result.exitCode;
}
