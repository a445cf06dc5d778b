#include "cli/CliScan.h"

#include <cstdlib>

#include "app/Language.h"
#include "session/EngineTable.h"
#include "cli/CliFrontEnd.h"
#include "cli/CliOutputs.h"
#include "session/Texts.h"
#include "fs/VolumeTree.h"
#include "job/Modes.h"
#include "session/ScanPlan.h"
#include "scan/CScanDriver.h"
#include "scan/OperationRules.h"
#include "job/ScanOperation.h"
#include "util/Text.h"
#include "carve/SignatureList.h"

namespace kestrin::cli {

namespace {

// The rows the signature stage searches: the records the mode lists, narrowed by --types.
bool LoadSignatures(const ScanOptions& o, ScanRun& run, std::string& error) {
    std::string problem;
    run.signatures = SignaturesForMode(run.mode, app::CurrentPaths().configFolder, &problem);
    // Deleted files skip the signature scan, so a missing list only matters to the other modes.
    if (!problem.empty() && run.mode != RecoveryMode::DeletedFiles && o.types.empty() && run.signatures.empty())
        std::fprintf(stderr, "kestrin: %s\n", problem.c_str());
    if (!o.types.empty()) {
        std::vector<std::string> unmatched;
        run.signatures = FilterByExtensions(run.signatures, SplitTypeList(o.types), &unmatched);
        if (!unmatched.empty()) {
            error = T("IDS_CLI_NO_SIGNATURE_FOR", "no signature for these types:") + " ";
            for (size_t i = 0; i < unmatched.size(); ++i) error += (i ? ", " : "") + unmatched[i];
            error += " (" + T("IDS_CLI_SEE_SIGNATURES", "see `kestrin signatures`") + ")";
            return false;
        }
    }
    return true;
}

// Fills the source info of `v` from the media's current selection.
void DescribeSelection(const ScanRun& run, VolumeScan& v) {
    const CPhysicalDisk& media = *run.src.media;
    v.info.path = run.src.path;
    v.info.kind = media.GetSourceKind();
    v.info.firstSector = media.GetFirstSector();
    v.info.sectorCount = media.GetSectorCount();
    v.info.sectorSize = media.GetSectorSize();
    v.info.fsKind = media.GetFsKind();
}

// Runs the operation the mode calls for on the media's current selection, then what may follow
// a partition search: the whole-drive scan it offers when it found nothing, or the scan of the
// one partition it listed when its record search found no files of its own.
// `forcedKind` runs that operation instead of the one the source kind calls for (the smart scan
// of a damaged partition, the previous-file-system search of a chosen partition).
VolumeScan ScanSelection(const ScanOptions& o, ScanRun& run, std::optional<OperationKind> forcedKind = {}) {
    CPhysicalDisk& media = *run.src.media;
    VolumeScan v;
    uint64_t failuresBefore = media.ReadFailures();
    CliFrontEnd fe(o.quiet);
    auto driver = std::make_unique<CScanDriver>(media, MakeEngines(), fe);
    driver->SetSignatures(&run.signatures);
    driver->Operation().keepTimes.store(o.keepTimes ? 1 : 0);
    DescribeSelection(run, v);
    std::optional<OperationKind> kind = forcedKind;
    if (!kind) kind = driver->StartForSource(run.mode);
    else if (!driver->Start(*kind, run.mode)) kind.reset();
    if (kind) fe.RunToEnd(*driver);
    if (kind == OperationKind::PartitionSearch && !driver->CancelConfirmed()) {
        if (driver->NoPartitionFound()) {
            // Asked on a terminal; --yes accepts without asking; without either it is declined.
            bool accept = o.yes || fe.Ask(T("IDS_NO_PARTITION_FOUND"));
            v.offer = accept ? Offer::Accepted : Offer::Declined;
            if (accept && driver->ContinueAsSignatureScan()) fe.RunToEnd(*driver);
        } else if (!driver->TreeHasItems()) {
            // The search listed partitions but found no files itself: as on the partition list,
            // choosing the one partition there is starts a scan of it.
            RefreshPartitionList(run.src);
            auto scannable = ScannablePartitions(run.src);
            if (scannable.size() == 1 && SelectListedPartition(run.src, scannable[0])) {
                driver = std::make_unique<CScanDriver>(media, MakeEngines(), fe);
                driver->SetSignatures(&run.signatures);
                driver->Operation().deletedOnly.store(DeletedOnlyFor(run.mode) ? 1 : 0);
                driver->Operation().keepTimes.store(o.keepTimes ? 1 : 0);
                DescribeSelection(run, v);
                v.partition = int(scannable[0] + 1);
                if (driver->Start(OperationKind::FileSystemScan, run.mode)) fe.RunToEnd(*driver);
            } else if (scannable.size() > 1) {
                std::string list = DescribePartitions(run.src);
                if (!list.empty() && list.back() == '\n') list.pop_back();
                fe.OnNotice(UserText{"", T("IDS_CLI_PARTITIONS_ON_SOURCE",
                                           "Partitions on this source (scan one with --partition N):") +
                                             "\n" + list});
            }
        }
    }
    // The file system is named by what the boot sector holds (an exFAT volume in a slot typed
    // for NTFS), as the engine that read it found it.
    if (media.GetFsKind() != FsKind::None) v.info.fsKind = media.GetFsKind();
    v.tree = driver->ReleaseTree();
    v.cancelled = driver->CancelConfirmed();
    v.notices = fe.Notices();
    v.seconds = fe.ElapsedSeconds();
    v.readFailures = media.ReadFailures() - failuresBefore;
    return v;
}

// Runs the lost-partition search on the whole source so that --partition N can name a found one.
void SearchWholeSource(const ScanOptions& o, ScanRun& run) {
    SelectWholeSource(run.src);
    CliFrontEnd fe(o.quiet);
    CScanDriver driver(*run.src.media, MakeEngines(), fe);
    if (driver.Start(OperationKind::PartitionSearch, run.mode)) fe.RunToEnd(driver);
    for (const auto& n : fe.Notices()) std::fprintf(stderr, "%s\n", n.c_str());
    RefreshPartitionList(run.src);
}

bool ParsePartitionNumber(const std::string& s, size_t& n) {
    if (s.empty() || s.size() > 6) return false;
    n = 0;
    for (char c : s) {
        if (c < '0' || c > '9') return false;
        n = n * 10 + size_t(c - '0');
    }
    return n > 0;
}

} // namespace

void AddScanOptions(CLI::App* sub, ScanOptions& o, bool withJson, bool withAll) {
    sub->add_option("SOURCE", o.source, "Image file (raw, name.001, E01, VHD, VHDX, VMDK or QCOW2), device (/dev/sdb, /dev/sdb1) or disk number")
        ->required();
    sub->add_option("--mode", o.mode,
                    "deleted-files, lost-files, partition, formatted, deleted-photos, lost-photos (or 1019-1022, "
                    "1037, 1038)");
    sub->add_option("--partition", o.partition,
                    withAll ? "Partition number as `kestrin partitions` lists it, or all"
                            : "Partition number as `kestrin partitions` lists it")
        ->check(PartitionValue(withAll));
    sub->add_option("--types", o.types, "Only these file types in the signature scan (jpg,pdf,...)");
    if (withJson)
        sub->add_option("--json", o.json, "Write the found tree as JSON to FILE, or - for standard output")
            ->check(PathValue(true));
    sub->add_flag("--quiet", o.quiet, "No progress display");
    sub->add_flag("--yes", o.yes, "Answer Yes to the program's offers when there is no terminal to ask");
    sub->add_option("--lang", o.lang, "Language of the texts (English, French, German, Italian, Spanish)");
    AddSectorSizeOption(sub, o.sectorSize);
}

std::optional<RecoveryMode> ParseMode(const std::string& text) {
    for (const ModeInfo& m : kModeTable)
        if (EqualsNoCase(text, m.cliName)) return m.mode;
    if (text.size() == 4 && text.find_first_not_of("0123456789") == std::string::npos) {
        uint32_t v = uint32_t(std::atoi(text.c_str()));
        if (IsKnownMode(v)) return static_cast<RecoveryMode>(v);
    }
    return std::nullopt;
}

int RunScan(const ScanOptions& o, ScanRun& run) {
    if (!o.lang.empty() && !ChooseLanguage(o.lang)) {
        std::fprintf(stderr, "kestrin: %s\n",
                     Tf("IDS_CLI_UNKNOWN_LANGUAGE", o.lang,
                        "unknown language \"%s\" (English, French, German, Italian, Spanish)").c_str());
        return 1;
    }
    std::optional<RecoveryMode> mode = ParseMode(o.mode);
    if (!mode) {
        std::fprintf(stderr, "kestrin: %s\n",
                     Tf("IDS_CLI_UNKNOWN_MODE", o.mode,
                        "unknown mode \"%s\" (deleted-files, lost-files, partition, formatted, deleted-photos, "
                        "lost-photos, or 1019-1022, 1037, 1038)").c_str());
        return 1;
    }
    run.mode = *mode;
    std::string error;
    if (!LoadSignatures(o, run, error)) {
        std::fprintf(stderr, "kestrin: %s\n", error.c_str());
        return 1;
    }
    if (!OpenSource(o.source, run.src, error, o.sectorSize)) {
        std::fprintf(stderr, "kestrin: %s\n", error.c_str());
        return 1;
    }
    if (o.beforeScan && !o.beforeScan(run.src)) return 1;

    // In partition mode a chosen number counts the found partitions too: search first.
    // A number past the table's entries can only name a found one (the numbering of
    // `kestrin partitions --search`): the search runs first in every mode then.
    size_t asked = 0;
    bool pastTable = o.partition != "all" && ParsePartitionNumber(o.partition, asked) &&
                     asked > run.src.partitions.size();
    if ((run.mode == RecoveryMode::Partition || pastTable) && !o.partition.empty() && run.src.wholeKind != SourceKind::Volume)
        SearchWholeSource(o, run);

    // -1 stands for the whole source.
    std::vector<long> targets;
    if (o.partition == "all") {
        for (size_t i : ScannablePartitions(run.src)) targets.push_back(long(i));
        if (targets.empty()) {
            std::fprintf(stderr, "kestrin: %s: %s\n%s", o.source.c_str(),
                         T("IDS_CLI_NO_READABLE_PARTITION", "no partition with a file system this program reads").c_str(),
                         DescribePartitions(run.src).c_str());
            return 1;
        }
    } else if (!o.partition.empty()) {
        size_t n = 0;
        if (!ParsePartitionNumber(o.partition, n) || n > run.src.partitions.size()) {
            std::fprintf(stderr, "kestrin: %s: %s\n%s", o.source.c_str(),
                         Tf("IDS_CLI_NO_SUCH_PARTITION", o.partition,
                            "there is no partition %s; the source holds:").c_str(),
                         run.src.partitions.empty()
                             ? ("  (" + T("IDS_CLI_NO_PARTITIONS", "no partitions") + ")\n").c_str()
                             : DescribePartitions(run.src).c_str());
            return 1;
        }
        targets.push_back(long(n - 1));
    } else {
        targets.push_back(-1);
        std::optional<OperationKind> kind = ChooseOperationKind(run.mode, run.src.wholeKind);
        bool partitionModes = run.mode == RecoveryMode::Partition || run.mode == RecoveryMode::Formatted;
        if (kind == OperationKind::PartitionSearch && run.src.wholeKind != SourceKind::Volume && !partitionModes) {
            // The modes that recover files want one volume: a disk with exactly one file system
            // scans it; several need a choice; none go on to the search for lost partitions.
            auto scannable = ScannablePartitions(run.src);
            if (scannable.size() == 1) {
                targets[0] = long(scannable[0]);
            } else if (scannable.size() > 1) {
                std::fprintf(stderr, "kestrin: %s: %s\n%s", o.source.c_str(),
                             T("IDS_CLI_SEVERAL_PARTITIONS",
                               "this source holds several partitions; choose one with --partition N (or all):")
                                 .c_str(),
                             DescribePartitions(run.src).c_str());
                return 1;
            }
        }
    }

    for (long t : targets) {
        if (t < 0) {
            SelectWholeSource(run.src);
        } else if (!SelectListedPartition(run.src, size_t(t))) {
            std::fprintf(stderr, "kestrin: %s: %s\n", o.source.c_str(),
                         Tf("IDS_CLI_PARTITION_OUTSIDE", std::to_string(t + 1),
                            "partition %s lies outside the source").c_str());
            return 1;
        }
        const std::optional<OperationKind> forced =
            t < 0 ? std::nullopt : ForcedKindFor(run.mode, run.src.partitions[size_t(t)]);
        VolumeScan v = ScanSelection(o, run, forced);
        if (t >= 0) TakeDetectedFileSystem(run.src, size_t(t), forced);
        v.partition = t < 0 ? 0 : int(t + 1);

        bool cancelled = v.cancelled;
        run.volumes.push_back(std::move(v));
        if (cancelled) break; // a stop ends the whole run, not only this partition
    }
    return 0;
}

int ExitCodeOf(const ScanRun& run) {
    bool readErrors = false;
    for (const auto& v : run.volumes) {
        if (v.cancelled) return 2;
        if (v.readFailures) readErrors = true;
    }
    return readErrors ? 3 : 0;
}

TreeCounts CountTree(const CNode* top) {
    TreeCounts c;
    if (!top) return c;
    ForEachNode(const_cast<CNode*>(top), [&](CNode* n) {
        if (n->IsFolder()) {
            ++c.folders;
        } else {
            ++c.files;
            c.bytes += n->size;
            // Carved files carry no in-use flag; only file-system items can be deleted ones.
            if (n->IsDeleted() && !n->carved) ++c.deletedFiles;
        }
    });
    return c;
}

void PrintSummary(std::FILE* out, const VolumeScan& v, bool withHeader) {
    if (withHeader) {
        if (v.partition)
            std::fprintf(out, "%s (%s):\n", Tf("IDS_CLI_PARTITION_N", std::to_string(v.partition), "Partition %s").c_str(),
                         FsKindName(v.info.fsKind));
        else
            std::fprintf(out, "%s:\n", EscapeForTerminal(v.info.path).c_str()); // a session's path is untrusted
    }
    TreeCounts c = CountTree(v.tree.get());
    std::fprintf(out, "%s: %s\n", T("IDS_CLI_SUMMARY_FOLDERS").c_str(), WithThousands(c.folders).c_str());
    std::fprintf(out, "%s: %s\n", T("IDS_CLI_SUMMARY_FILES").c_str(), WithThousands(c.files).c_str());
    std::fprintf(out, "%s: %s\n", T("IDS_CLI_SUMMARY_DELETED").c_str(), WithThousands(c.deletedFiles).c_str());
    std::fprintf(out, "%s: %s (%s)\n", T("IDS_CLI_SUMMARY_BYTES").c_str(), FormatSizeKB(c.bytes).c_str(),
                 WithThousands(c.bytes).c_str());
    std::fprintf(out, "%s%s\n", T("IDS_CLI_SUMMARY_TIME").c_str(), FormatElapsed(uint64_t(v.seconds + 0.5)).c_str());
    for (const auto& n : v.notices) std::fprintf(out, "%s\n", EscapeLinesForTerminal(n).c_str());
    if (v.offer == Offer::Accepted) std::fprintf(out, "%s\n", T("IDS_CLI_NO_PARTITION_ACCEPTED").c_str());
    if (v.offer == Offer::Declined) std::fprintf(out, "%s\n", T("IDS_CLI_NO_PARTITION_DECLINED").c_str());
    if (v.cancelled) std::fprintf(out, "%s\n", T("IDS_CLI_CANCELLED").c_str());
    if (v.readFailures) std::fprintf(out, "%s\n", T("IDS_CLI_READ_ERRORS").c_str());
}

const CNode* FindNodeByPath(const CNode* top, const std::string& path) {
    if (!top) return nullptr;
    std::vector<std::string> parts;
    size_t at = 0;
    while (at <= path.size()) {
        size_t slash = path.find('/', at);
        if (slash == std::string::npos) slash = path.size();
        std::string part = path.substr(at, slash - at);
        if (!part.empty() && !(parts.empty() && part == ".")) parts.push_back(part);
        at = slash + 1;
    }
    if (parts.empty()) return nullptr;
    const CNode* n = FindVolumeRoot(top);
    if (parts.front() == "File Types" || !n) n = top;
    for (const auto& p : parts) {
        n = FindChild(n, ToUtf16(p));
        if (!n) return nullptr;
    }
    return n;
}

} // namespace kestrin::cli
