// kestrin cat: scans, finds one item by its path and writes its content to standard output.
#include <cstdio>
#include <memory>

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
            std::fprintf(stderr, "kestrin: cat reads one volume: give --partition N\n");
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
            std::fprintf(stderr, "kestrin: %s: %s\n", path->c_str(), node ? "is a folder" : "not found");
            result.exitCode = v.cancelled ? kExitCancelled : kExitUsage;
            return;
        }
        ContentResult r = WriteNodeContent(*run.src.media, *node, [](const uint8_t* data, size_t len) {
            return std::fwrite(data, 1, len, stdout) == len;
        });
        std::fflush(stdout);
        if (!r.ok) {
            if (r.written == 0 && r.unreadable == 0 && r.beyondVolume == 0)
                std::fprintf(stderr, "kestrin: %s: the content cannot be read by this build\n", path->c_str());
            else
                std::fprintf(stderr,
                             "kestrin: %s: incomplete: %llu of %llu bytes could not be read (%llu past the volume); "
                             "%llu bytes written\n",
                             path->c_str(), (unsigned long long)(r.unreadable + r.beyondVolume),
                             (unsigned long long)node->size, (unsigned long long)r.beyondVolume,
                             (unsigned long long)r.written);
            result.exitCode = kExitReadErrors;
            return;
        }
        result.exitCode = ExitCodeOf(run);
    });
}

} // namespace kestrin::cli
