#pragma once
// Each verb of the command line lives in its own file and registers itself on the app here.
#include <CLI/CLI.hpp>

namespace kestrin::cli {

// Exit codes of every verb (docs/cli.md lists them).
enum ExitCode : int {
    kExitOk = 0,
    kExitUsage = 1,
    kExitCancelled = 2,
    kExitReadErrors = 3,
    kExitWriteErrors = 4,  // finished, but some items could not be written (a full disk, a refused file)
    kExitNothingToSave = 5, // recover: no item matched what was asked for; nothing was created
};

// The verb's action runs after parsing; it stores its exit code here.
struct VerbResult {
    int exitCode = kExitOk;
};

void AddPartitionsVerb(CLI::App& app, VerbResult& result);
void AddScanVerbs(CLI::App& app, VerbResult& result);     // scan, ls, drives
void AddCatVerb(CLI::App& app, VerbResult& result);       // cat
void AddSignaturesVerb(CLI::App& app, VerbResult& result); // signatures
void AddRecoverVerbs(CLI::App& app, VerbResult& result);  // recover, image
void AddReportVerb(CLI::App& app, VerbResult& result);    // report

} // namespace kestrin::cli
