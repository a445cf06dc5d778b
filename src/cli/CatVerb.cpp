// kestrin cat: scans, finds one item by its path and writes its content to standard output.
#include <cstdio>
#include <memory>

#include "cli/CliOutputs.h"
#include "cli/CliScan.h"
#include "session/Texts.h"
#include "cli/Verbs.h"
#include "fs/CNode.h"
#include "output/ContentCopy.h"

namespace kestrin::cli {

void AddCatVerb(CLI::App& app, VerbResult& result) {
    auto opts = std::make_shared<ScanOptions>();
    auto path = std::make_shared<std::string>();
    CLI::App* sub = app.add_subcommand("cat", "Scan a source and write one found file's content to standard output");
    AddScanOptions(sub, *opts, false, false);
    sub->add_option("PATH", *path, "Path below the volume root (docs/a.txt) or File Types/jpg/.../file#1.jpg")
        ->required();
    sub->callback([opts, path, &result] {
        // The content goes to standard output, so nothing else may.
        if (opts->partition == "all") {
            std::fprintf(stderr, "kestrin: %s\n",
                         T("IDS_CLI_CAT_ONE_VOLUME", "cat reads one volume: give --partition N").c_str());
            result.exitCode = kExitUsage;
            return;
        }
        ScanRun run;
        int rc = RunScan(*opts, run);
        if (rc != 0 || run.volumes.empty()) {
            result.exitCode = rc ? rc : kExitUsage;
            return;
        }
        const VolumeScan& v = run.volumes.front();
        for (const auto& n : v.notices) std::fprintf(stderr, "%s\n", n.c_str());
        const CNode* node = FindNodeByPath(v.tree.get(), *path);
        if (!node || node->IsFolder()) {
            std::fprintf(stderr, "kestrin: %s: %s\n", path->c_str(),
                         node ? T("IDS_CLI_IS_A_FOLDER", "is a folder").c_str()
                              : T("IDS_CLI_NOT_FOUND", "not found").c_str());
            result.exitCode = v.cancelled ? kExitCancelled : kExitUsage;
            return;
        }
        ContentResult r = WriteNodeContent(*run.src.media, *node, [](const uint8_t* data, size_t len) {
            return std::fwrite(data, 1, len, stdout) == len;
        });
        std::fflush(stdout);
        if (!r.ok) {
            if (r.written == 0 && r.unreadable == 0 && r.beyondVolume == 0)
                std::fprintf(stderr, "kestrin: %s: %s\n", path->c_str(),
                             T("IDS_CLI_CONTENT_UNREADABLE", "the content cannot be read by this build").c_str());
            else
                std::fprintf(stderr, "kestrin: %s: %s\n", path->c_str(),
                             TextWith("IDS_CLI_CAT_INCOMPLETE",
                                      "incomplete: %s of %s bytes could not be read (%s past the volume); "
                                      "%s bytes written",
                                      {std::to_string(r.unreadable + r.beyondVolume), std::to_string(node->size),
                                       std::to_string(r.beyondVolume), std::to_string(r.written)})
                                 .c_str());
            result.exitCode = kExitReadErrors;
            return;
        }
        result.exitCode = ExitCodeOf(run);
    });
}

} // namespace kestrin::cli
