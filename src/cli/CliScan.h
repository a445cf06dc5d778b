#pragma once
// What `scan`, `ls` and `cat` share: their options, opening the source, choosing the partition,
// running the operations the mode calls for through the scan driver, and the summary.
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "carve/SignatureRecord.h"
#include "cli/CliJson.h"
#include "session/Source.h"
#include "fs/CNode.h"
#include "job/ScanOperation.h"

namespace kestrin::cli {

struct ScanOptions {
    std::string source;
    std::string mode = "deleted-files";
    std::string partition; // "", "all" or a number
    std::string types;     // comma-separated extensions
    std::string json;      // "", "-" or a file
    std::string lang;
    uint32_t sectorSize = 0; // 0: the source's own
    bool quiet = false;
    bool yes = false;
    bool keepTimes = false; // the walks keep the items' full times (a report wants them)
    // Called once the source is open and before anything is scanned: the verbs check their
    // outputs against it here. False ends the run with exit code 1.
    std::function<bool(const OpenedSource&)> beforeScan;
};

// Registers SOURCE and the options shared by the scanning verbs on `sub`.
void AddScanOptions(CLI::App* sub, ScanOptions& o, bool withJson, bool withAll);

// "deleted-files" ... "lost-photos" or 1019-1022, 1037, 1038; 0 when unknown.
std::optional<RecoveryMode> ParseMode(const std::string& text);

enum class Offer { None, Accepted, Declined };

// One scanned volume (or the whole source when no partition was chosen).
struct VolumeScan {
    int partition = 0; // 1-based number of the chosen partition, 0 for none
    SourceInfo info;
    std::unique_ptr<CNode> tree;
    bool cancelled = false;
    uint64_t readFailures = 0;
    double seconds = 0;
    std::vector<std::string> notices;
    Offer offer = Offer::None;
};

struct ScanRun {
    RecoveryMode mode = RecoveryMode::DeletedFiles;
    OpenedSource src;
    std::vector<SignatureRecord> signatures;
    std::vector<VolumeScan> volumes;
};

// Opens the source and runs the scans. Returns 0, or 1 after printing why nothing could run
// (bad usage, unreadable source, a partition must be chosen). Cancels and read errors are in
// the result: see ExitCodeOf.
int RunScan(const ScanOptions& o, ScanRun& run);
// 2 when a scan was cancelled, else 3 when reads failed, else 0.
int ExitCodeOf(const ScanRun& run);

struct TreeCounts {
    uint64_t folders = 0, files = 0, deletedFiles = 0, bytes = 0;
};
TreeCounts CountTree(const CNode* top);
// The summary lines of one volume: counts, time, notices, cancel and read-error remarks.
void PrintSummary(std::FILE* out, const VolumeScan& v, bool withHeader);
// The node at a '/'-joined path below the volume root, or below the top for "File Types/...".
const CNode* FindNodeByPath(const CNode* top, const std::string& path);

} // namespace kestrin::cli
