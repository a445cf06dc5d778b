// kestrin scan, ls and drives.
#include <algorithm>
#include <cstdio>
#include <functional>
#include <iostream>
#include <memory>

#include "cli/CliDrives.h"
#include "cli/CliJson.h"
#include "cli/CliOutputs.h"
#include "cli/CliScan.h"
#include "session/Source.h"
#include "session/Texts.h"
#include "cli/Verbs.h"
#include "fs/CNode.h"
#include "output/SessionFile.h"
#include "output/UserMessages.h"
#include "util/DosDate.h"
#include "util/Text.h"

namespace kestrin::cli {

namespace {

// The whole run as JSON: one scan object, or {"volumes":[...]} for --partition all.
void WriteRunJsonTo(std::ostream& out, const ScanRun& run, bool all) {
    if (all) {
        out << "{\"volumes\":[";
        for (size_t i = 0; i < run.volumes.size(); ++i) {
            const auto& v = run.volumes[i];
            out << (i ? "," : "") << "{\"partition\":" << v.partition << ",";
            WriteScanJsonBody(out, run.mode, v.info, *v.tree);
            out << "}";
        }
        out << "]}\n";
    } else if (!run.volumes.empty()) {
        out << "{";
        WriteScanJsonBody(out, run.mode, run.volumes.front().info, *run.volumes.front().tree);
        out << "}\n";
    }
}

// Writes the run's JSON as it is made: a file under a temporary name, moved into place when
// complete; or standard output.
bool WriteRunJson(const std::string& target, const ScanRun& run, bool all, bool overwrite) {
    if (target != "-")
        return WriteOutputStream(target, overwrite, [&](std::ostream& out) { WriteRunJsonTo(out, run, all); });
    WriteRunJsonTo(std::cout, run, all);
    std::cout.flush();
    if (!std::cout) {
        std::fprintf(stderr, "kestrin: %s\n", T("IDS_CLI_JSON_FAILED", "writing the JSON failed").c_str());
        return false;
    }
    return true;
}

// Messages of the session reader and writer, printed on stderr.
class SessionMessages final : public IUserMessages {
public:
    void Show(const UserMessage& m) override {
        shown = true;
        std::fprintf(stderr, "kestrin: %s\n", EscapeLinesForTerminal(TextOf(m)).c_str());
    }
    bool shown = false;
};

bool IsSessionPath(const std::string& path) {
    return path.size() > 5 && EqualsNoCase(std::string_view(path).substr(path.size() - 5), ".tks4");
}

// A recovery session stands in for a scan: its tree and source come back without scanning.
int ReadSessionAsRun(const ScanOptions& o, ScanRun& run) {
    if (!o.lang.empty() && !ChooseLanguage(o.lang)) return kExitUsage;
    SessionData session;
    SessionMessages msgs;
    ReadSessionOptions ro;
    // With its source at hand the deleted files' conditions are judged again; listing a session
    // needs no source all the same: its tree is shown even when the image has moved.
    struct Quiet final : IUserMessages {
        void Show(const UserMessage&) override {}
    } quiet;
    bool read = ReadSession(o.source, ro, session, quiet);
    ro.openSource = false;
    if (!read && !ReadSession(o.source, ro, session, msgs)) {
        if (!msgs.shown) std::fprintf(stderr, "kestrin: %s\n", Tf("IDS_CLI_CANNOT_BE_READ", o.source, "%s cannot be read").c_str());
        return kExitUsage;
    }
    if (o.beforeScan) {
        // The outputs are checked against the session file and the source it names.
        OpenedSource named;
        named.path = ToUtf8(session.sourcePath);
        if (!o.beforeScan(named)) return kExitUsage;
    }
    run.mode = session.mode;
    VolumeScan v;
    if (session.media) {
        v.info.path = ToUtf8(session.media->GetPath());
        v.info.kind = session.media->GetSourceKind();
        v.info.firstSector = session.media->GetFirstSector();
        v.info.sectorCount = session.media->GetSectorCount();
        v.info.sectorSize = session.media->GetSectorSize();
        v.info.fsKind = session.media->GetFsKind();
    }
    v.tree = std::move(session.top);
    if (!v.tree) return kExitUsage;
    run.volumes.push_back(std::move(v));
    return kExitOk;
}

// Writes the scanned volume as a recovery session (one volume per session file).
int WriteRunSession(const std::string& path, ScanRun& run, bool overwrite) {
    if (run.volumes.size() != 1 || !run.src.media) {
        std::fprintf(stderr, "kestrin: %s\n",
                     T("IDS_CLI_SESSION_ONE_VOLUME", "a session holds one volume; choose one with --partition N").c_str());
        return kExitUsage;
    }
    VolumeScan& v = run.volumes.front();
    SessionMessages msgs;
    if (!WriteScanSession(path, run.mode, *run.src.media, v.tree.get(), msgs, overwrite)) return kExitWriteErrors;
    return kExitOk;
}

struct ListOptions {
    bool deleted = false;
    bool longFormat = false;
};

// Indentation grows two spaces a level up to this depth and then stops, so that a hostile tree
// nested a hundred thousand levels deep prints in linear rather than quadratic size.
constexpr size_t kMaxIndentDepth = 64;

// The indentation of a line at `depth` (1 for the top's children): two spaces a level, and past
// kMaxIndentDepth the capped indentation followed by "[depth N] ".
std::string TreeIndent(size_t depth) {
    std::string indent(2 * std::min(depth, kMaxIndentDepth), ' ');
    if (depth > kMaxIndentDepth) indent += "[depth " + std::to_string(depth) + "] ";
    return indent;
}

// One line per node: indent, name, size, modified, created, the deleted mark; with --long also
// the record number, location and flags. Names are escaped for the terminal. Walks with an
// explicit stack of open folders.
void PrintTree(std::FILE* out, CNode* top, const ListOptions& lo) {
    if (lo.deleted) MarkDeletedView(top);
    const std::string mark = T("IDS_CLI_DELETED_MARK", "(deleted)");
    std::fprintf(out, "%s\n", T("IDS_CLI_ROOT", "Root").c_str());
    std::vector<CNode*> stack;
    for (CNode* n = top->firstChild; n;) {
        bool shown = !lo.deleted || n->inDeletedView;
        if (shown) {
            std::string line = TreeIndent(stack.size() + 1);
            line += EscapeForTerminal(n->name);
            if (n->IsFolder()) line += "/";
            char cols[200];
            // A folder's size field holds no byte count (grouping folders count their files in
            // it), so folders show only their dates.
            std::string mod = FormatDosDateShort(n->modifiedDate), cre = FormatDosDateShort(n->createdDate);
            if (!n->IsFolder()) line += "  " + FormatSizeKB(n->size);
            if (!mod.empty() || !cre.empty()) {
                std::snprintf(cols, sizeof cols, "  %8s  %8s", mod.c_str(), cre.c_str());
                line += cols;
            }
            if (lo.longFormat) {
                std::snprintf(cols, sizeof cols, "  record %u  parent %u  location %llu+%u  flags %u%s",
                              n->recordId, n->parentRecordId, (unsigned long long)n->location, n->startOffset,
                              unsigned(n->flags), n->carved ? "  carved" : "");
                line += cols;
            }
            if (n->IsDeleted() && !n->carved) line += "  " + mark;
            std::fprintf(out, "%s\n", line.c_str());
        }
        if (shown && n->firstChild) {
            stack.push_back(n);
            n = n->firstChild;
            continue;
        }
        while (n && !n->nextSibling) {
            if (stack.empty()) {
                n = nullptr;
                break;
            }
            n = stack.back();
            stack.pop_back();
        }
        if (n) n = n->nextSibling;
    }
    if (lo.deleted) ClearDeletedView(top);
}

// The outputs a scanning verb plans (JSON file, session), checked against the source once it is
// open and before anything is scanned.
// The check is stored in the options it reads, so it holds them by plain pointer (a shared one
// would keep them alive for ever); they outlive the run.
std::function<bool(const OpenedSource&)> OutputCheckFor(const ScanOptions* opts, const std::string* session,
                                                        bool overwrite) {
    return [opts, session, overwrite](const OpenedSource& src) {
        std::vector<platform::FileIdentity> ids;
        if (src.media) ids = SourceIdentities(*src.media);
        AddSourcePath(ids, opts->source);
        // For a session this is the source it names, protected as much as the session file.
        AddSourcePath(ids, src.path);
        std::vector<PlannedOutput> outputs;
        if (!opts->json.empty() && opts->json != "-") outputs.push_back({PlannedOutput::Kind::File, opts->json});
        if (session && !session->empty()) outputs.push_back({PlannedOutput::Kind::File, *session});
        if (!opts->json.empty() && session && *session == opts->json) {
            std::fprintf(stderr, "kestrin: %s\n", T("IDS_CLI_JSON_SESSION_SAME", "--json and --session name the same file").c_str());
            return false;
        }
        return CheckPlannedOutputs(outputs, ids, overwrite);
    };
}

void AddScanVerb(CLI::App& app, VerbResult& result) {
    auto opts = std::make_shared<ScanOptions>();
    auto sessionPath = std::make_shared<std::string>();
    auto overwrite = std::make_shared<bool>(false);
    CLI::App* sub = app.add_subcommand("scan", "Scan a source and print what was found (or write it as JSON)");
    AddScanOptions(sub, *opts, true, true);
    sub->add_option("--session", *sessionPath, "Also save the scan as a recovery session (FILE.tks4)")
        ->check(PathValue());
    sub->add_flag("--overwrite", *overwrite, "Replace an existing --json or --session file");
    sub->callback([opts, sessionPath, overwrite, &result] {
        if (!sessionPath->empty() && opts->partition == "all") {
            std::fprintf(stderr, "kestrin: %s\n",
                     T("IDS_CLI_SESSION_ONE_VOLUME", "a session holds one volume; choose one with --partition N").c_str());
            result.exitCode = kExitUsage;
            return;
        }
        if (!sessionPath->empty() && IsSessionPath(opts->source)) {
            std::fprintf(stderr, "kestrin: %s\n",
                         Tf("IDS_CLI_SESSION_ALREADY", opts->source, "%s is a session already; --session saves a new scan").c_str());
            result.exitCode = kExitUsage;
            return;
        }
        opts->beforeScan = OutputCheckFor(opts.get(), sessionPath.get(), *overwrite);
        ScanRun run;
        int rc = IsSessionPath(opts->source) ? ReadSessionAsRun(*opts, run) : RunScan(*opts, run);
        if (rc != 0 && run.volumes.empty()) {
            result.exitCode = rc;
            return;
        }
        bool jsonToStdout = opts->json == "-";
        if (!opts->json.empty() && !WriteRunJson(opts->json, run, opts->partition == "all", *overwrite)) {
            result.exitCode = kExitWriteErrors;
            return;
        }
        std::FILE* out = jsonToStdout ? stderr : stdout;
        for (const auto& v : run.volumes) PrintSummary(out, v, run.volumes.size() > 1 || v.partition);
        result.exitCode = ExitCodeOf(run);
        if (!sessionPath->empty()) {
            if (int rc2 = WriteRunSession(*sessionPath, run, *overwrite); rc2 != kExitOk) result.exitCode = rc2;
        }
    });
}

void AddLsVerb(CLI::App& app, VerbResult& result) {
    auto opts = std::make_shared<ScanOptions>();
    auto lo = std::make_shared<ListOptions>();
    auto overwrite = std::make_shared<bool>(false);
    CLI::App* sub = app.add_subcommand("ls", "Scan a source and list the found tree");
    AddScanOptions(sub, *opts, true, true);
    sub->add_flag("--deleted", lo->deleted, "Only deleted items and the folders that lead to them");
    sub->add_flag("--long", lo->longFormat, "Also record numbers, locations and flags");
    sub->add_flag("--overwrite", *overwrite, "Replace an existing --json file");
    sub->callback([opts, lo, overwrite, &result] {
        opts->beforeScan = OutputCheckFor(opts.get(), nullptr, *overwrite);
        ScanRun run;
        int rc = IsSessionPath(opts->source) ? ReadSessionAsRun(*opts, run) : RunScan(*opts, run);
        if (rc != 0 && run.volumes.empty()) {
            result.exitCode = rc;
            return;
        }
        if (!opts->json.empty() && !WriteRunJson(opts->json, run, opts->partition == "all", *overwrite)) {
            result.exitCode = kExitWriteErrors;
            return;
        }
        std::FILE* out = opts->json == "-" ? stderr : stdout;
        for (const auto& v : run.volumes) {
            if (run.volumes.size() > 1 || v.partition) std::fprintf(out, "%s:\n", Tf("IDS_CLI_PARTITION_N", std::to_string(v.partition), "Partition %s").c_str());
            PrintTree(out, v.tree.get(), *lo);
            for (const auto& n : v.notices) std::fprintf(stderr, "%s\n", n.c_str());
            if (v.cancelled) std::fprintf(stderr, "%s\n", T("IDS_CLI_CANCELLED").c_str());
            if (v.readFailures) std::fprintf(stderr, "%s\n", T("IDS_CLI_READ_ERRORS").c_str());
        }
        result.exitCode = ExitCodeOf(run);
    });
}

} // namespace

void AddScanVerbs(CLI::App& app, VerbResult& result) {
    AddScanVerb(app, result);
    AddLsVerb(app, result);
    AddDrivesVerb(app, result);
}

} // namespace kestrin::cli
