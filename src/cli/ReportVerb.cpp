// kestrin report: lists every found item of a scan or a recovery session for other tools (DFXML,
// a timeline body file or CSV), with full times and, when asked, digests of the content.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "cli/CliOutputs.h"
#include "cli/CliScan.h"
#include "cli/Verbs.h"
#include "output/OutputGuard.h"
#include "output/Report.h"
#include "output/SessionFile.h"
#include "session/Texts.h"
#include "storage/CPhysicalDisk.h"
#include "util/Text.h"

namespace kestrin::cli {

namespace {

struct ReportCliOptions {
    ScanOptions scan;
    std::string format;
    std::string hash;
    std::string out;
    bool overwrite = false;
};

class ReportMessages final : public IUserMessages {
public:
    void Show(const UserMessage& m) override {
        ++shown;
        std::fprintf(stderr, "kestrin: %s\n", EscapeLinesForTerminal(TextOf(m)).c_str());
    }
    int shown = 0;
};

bool IsSessionPath(const std::string& path) {
    return path.size() > 5 && EqualsNoCase(path.substr(path.size() - 5), ".tks4");
}

int RunReport(const ReportCliOptions& o) {
    ReportOptions options;
    options.version = KESTRIN_VERSION;
    options.sourcePath = o.scan.source;
    const auto format = ParseReportFormat(o.format);
    if (!format) {
        std::fprintf(stderr, "kestrin: %s\n",
                     Tf("IDS_CLI_REPORT_FORMAT", o.format, "unknown report format \"%s\" (dfxml, bodyfile, csv)").c_str());
        return kExitUsage;
    }
    options.format = *format;
    if (!o.hash.empty() && !ParseReportDigests(o.hash, options.digests)) {
        std::fprintf(stderr, "kestrin: %s\n",
                     Tf("IDS_CLI_REPORT_HASH", o.hash, "unknown digest list \"%s\" (md5, sha1, sha256)").c_str());
        return kExitUsage;
    }
    auto checkOutput = [&](const CPhysicalDisk* media, const std::string& alsoSource) {
        std::vector<platform::FileIdentity> ids;
        if (media) ids = SourceIdentities(*media);
        AddSourcePath(ids, o.scan.source);
        if (!alsoSource.empty()) AddSourcePath(ids, alsoSource);
        return CheckPlannedOutputs({{PlannedOutput::Kind::File, o.out}}, ids, o.overwrite);
    };

    std::vector<ReportVolume> volumes;
    SessionData session;
    ScanRun run;
    int exitCode = kExitOk;
    if (IsSessionPath(o.scan.source)) {
        if (!o.scan.lang.empty() && !ChooseLanguage(o.scan.lang)) return kExitUsage;
        ReportMessages msgs;
        if (!ReadSession(o.scan.source, {}, session, msgs) || !session.media) {
            if (!msgs.shown)
                std::fprintf(stderr, "kestrin: %s\n", T("IDS_CLI_SESSION_NO_SOURCE", "the session holds no source").c_str());
            return kExitUsage;
        }
        if (!checkOutput(session.media.get(), ToUtf8(session.sourcePath))) return kExitUsage;
        volumes.push_back({0, session.media.get(), session.top.get()});
    } else {
        ScanOptions scanOptions = o.scan;
        scanOptions.keepTimes = true;
        scanOptions.beforeScan = [&](const OpenedSource& src) { return checkOutput(src.media.get(), {}); };
        const int rc = RunScan(scanOptions, run);
        if (rc != 0 && run.volumes.empty()) return rc;
        exitCode = ExitCodeOf(run);
        if (exitCode == kExitCancelled) {
            std::fprintf(stderr, "%s\n", T("IDS_CLI_CANCELLED").c_str());
            return exitCode;
        }
        for (auto& v : run.volumes) volumes.push_back({v.partition, run.src.media.get(), v.tree.get()});
    }

    ReportTotals totals;
    bool written = false;
    const bool ok = WriteOutputStream(o.out, o.overwrite, [&](std::ostream& out) {
        written = WriteReport(out, options, volumes, totals);
    });
    if (!ok || !written) return kExitWriteErrors;
    if (!o.scan.quiet)
        std::printf("%s\n", TextWith("IDS_CLI_REPORT_DONE", "%s items listed in %s",
                                     {std::to_string(totals.items), o.out})
                                .c_str());
    if (totals.unreadableFiles) {
        std::fprintf(stderr, "kestrin: %s\n",
                     TextWith("IDS_CLI_REPORT_UNREADABLE", "%s files could not be read in full and have no digests",
                              {std::to_string(totals.unreadableFiles)})
                         .c_str());
        if (exitCode == kExitOk) exitCode = kExitReadErrors;
    }
    return exitCode;
}

} // namespace

void AddReportVerb(CLI::App& app, VerbResult& result) {
    auto o = std::make_shared<ReportCliOptions>();
    CLI::App* sub = app.add_subcommand(
        "report", "Scan a source (or open a recovery session) and list every found item as DFXML, a body file or CSV");
    AddScanOptions(sub, o->scan, false, true);
    sub->add_option("--format", o->format, "dfxml, bodyfile (for timeline tools) or csv")->required();
    sub->add_option("--hash", o->hash, "Digests of every file's content: md5, sha1, sha256 (comma-separated)");
    sub->add_option("--out", o->out, "The report file")->required()->check(PathValue());
    sub->add_flag("--overwrite", o->overwrite, "Replace an existing report file");
    sub->callback([o, &result] { result.exitCode = RunReport(*o); });
}

} // namespace kestrin::cli
