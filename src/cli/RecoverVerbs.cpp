// kestrin recover and kestrin image: saving found items to a folder or zip archive (from a fresh
// scan or a recovery session), and copying a source into an image file.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <fnmatch.h>

#include "session/EngineTable.h"
#include "cli/CliFrontEnd.h"
#include "cli/CliOutputs.h"
#include "cli/CliScan.h"
#include "session/Source.h"
#include "session/Texts.h"
#include "cli/Verbs.h"
#include "fs/CNode.h"
#include "output/DiscTarget.h"
#include "output/DiskImage.h"
#include "session/ImagePlan.h"
#include "output/OutputGuard.h"
#include "output/Saver.h"
#include "output/SessionFile.h"
#include "scan/CScanDriver.h"
#include "util/Text.h"

namespace kestrin::cli {

namespace {

// Messages of the output code, printed as the command line's own.
class CliMessages final : public IUserMessages {
public:
    void Show(const UserMessage& m) override {
        shown.push_back(m);
        // Messages may quote names and paths read from the source.
        std::fprintf(stderr, "kestrin: %s\n", EscapeLinesForTerminal(TextOf(m)).c_str());
    }
    std::vector<UserMessage> shown;
};

class CapturedMessages final : public IUserMessages {
public:
    void Show(const UserMessage& m) override { shown.push_back(m); }
    std::vector<UserMessage> shown;
};

struct RecoverOptions {
    ScanOptions scan;
    std::string to;
    std::string zip;
    std::string burn; // a recorder's address
    std::string iso;  // an ISO image file
    bool erase = false;
    std::vector<std::string> select;
    bool deletedOnly = false;
    bool overwrite = false;
    std::string collision = "rename";
};

bool EndsWithNoCase(const std::string& s, const char* suffix) {
    size_t n = std::char_traits<char>::length(suffix);
    return s.size() >= n && EqualsNoCase(std::string_view(s).substr(s.size() - n), suffix);
}

std::vector<std::string> SplitList(const std::string& s) {
    std::vector<std::string> out;
    size_t at = 0;
    while (at <= s.size()) {
        size_t comma = s.find(',', at);
        std::string item = s.substr(at, comma == std::string::npos ? std::string::npos : comma - at);
        while (!item.empty() && item.front() == '.') item.erase(item.begin());
        if (!item.empty()) out.push_back(AsciiLower(item));
        if (comma == std::string::npos) break;
        at = comma + 1;
    }
    return out;
}

// Ticks the files to save: every file, or those matching a --select pattern (against the path
// below the volume root or the name alone) and a --types extension. Returns how many.
uint64_t TickFiles(CNode* top, const RecoverOptions& o) {
    auto types = SplitList(o.scan.types);
    uint64_t ticked = 0;
    ForEachNode(top, [&](CNode* n) {
        n->checked = 0;
        if (n->IsFolder()) return;
        std::string name = ToUtf8(n->name);
        bool want = true;
        if (!types.empty()) {
            size_t dot = name.rfind('.');
            std::string ext = dot == std::string::npos ? std::string() : AsciiLower(name.substr(dot + 1));
            want = false;
            for (auto& t : types) want |= t == ext;
        }
        if (want && !o.select.empty()) {
            std::string path = name;
            for (const CNode* p = n->parent; p && p->parent && !(p->name == u"." && !p->parent->parent); p = p->parent)
                path = ToUtf8(p->name) + "/" + path;
            want = false;
            for (auto& pat : o.select)
                // Names on FAT, exFAT and NTFS ignore case, and so do the patterns.
                want |= fnmatch(pat.c_str(), path.c_str(), FNM_CASEFOLD) == 0 ||
                        fnmatch(pat.c_str(), name.c_str(), FNM_CASEFOLD) == 0;
        }
        if (want) {
            n->checked = 1;
            ++ticked;
        }
    });
    if (o.deletedOnly) {
        // Only the ticked files the deleted view keeps are saved: count those.
        MarkDeletedView(top);
        ticked = 0;
        ForEachNode(top, [&](CNode* n) { ticked += !n->IsFolder() && n->checked && n->inDeletedView; });
    }
    return ticked;
}

uint8_t CollisionModeOf(const std::string& s) {
    if (s == "rename") return kCollisionRename;
    if (s == "replace") return kCollisionRenameByNumber;
    if (s == "skip") return kCollisionSkip;
    if (s == "ask") return kCollisionAsk;
    return 0;
}

// The rename question on the terminal: a new name, nothing to skip, "!" to skip all the rest.
bool AskNewName(std::u16string& name, uint32_t code, uint8_t& mode) {
    if (!CliFrontEnd::HaveTerminal()) {
        mode = kCollisionSkip;
        return false;
    }
    std::fprintf(stderr, "%s \"%s\" (%u): ", T("IDS_CLI_RENAME_QUESTION", "Cannot create").c_str(),
                 EscapeForTerminal(name).c_str(), code);
    std::fprintf(stderr, "%s ", T("IDS_CLI_RENAME_HINT", "new name, empty to skip, ! to skip all:").c_str());
    char line[1024];
    if (!std::fgets(line, sizeof line, stdin)) {
        mode = kCollisionSkip;
        return false;
    }
    std::string answer(line);
    while (!answer.empty() && (answer.back() == '\n' || answer.back() == '\r')) answer.pop_back();
    if (answer == "!") {
        mode = kCollisionSkip;
        return false;
    }
    if (answer.empty()) {
        mode = kCollisionSkipOnce;
        return false;
    }
    name = ToUtf16(answer);
    return true;
}

struct SaveJob {
    CPhysicalDisk* media;
    CNode* top;
    std::string destination;
};

// Runs one save as the driver's saving operation, with the progress display.
SaveResult RunSave(const SaveJob& job, const RecoverOptions& o, RecoveryMode mode, uint8_t collision, CliMessages& msgs,
                   bool& cancelled) {
    SaveRequest req;
    req.destination = job.destination;
    req.replaceExisting = o.overwrite;
    req.collisionMode = collision;
    req.deletedOnly = o.deletedOnly;
    req.start = job.top;
    req.messages = &msgs;
    if (collision == kCollisionAsk) req.askRename = &AskNewName;
    SaveResult result;
    Engines engines = MakeEngines();
    engines.saveToFolder = [&](CPhysicalDisk& m, ScanContext& ctx) {
        result = SaveMarked(m, ctx, req);
        return OutcomeOf(result);
    };
    // The rename question needs the terminal line to itself.
    CliFrontEnd fe(o.scan.quiet || collision == kCollisionAsk);
    CScanDriver driver(*job.media, engines, fe);
    driver.SetSaveDestination(job.destination, 0);
    if (driver.Start(OperationKind::Save, mode)) fe.RunToEnd(driver);
    cancelled = driver.CancelConfirmed() || result.cancelled;
    return result;
}

void PrintSaveResult(const SaveResult& r, const std::string& destination) {
    std::printf("%s %s\n", T("IDS_CLI_SAVED_TO", "Saved to").c_str(), destination.c_str());
    std::printf("%s: %s\n", T("IDS_CLI_SUMMARY_FOLDERS").c_str(), WithThousands(r.folders).c_str());
    std::printf("%s: %s (%s)\n", T("IDS_CLI_SUMMARY_FILES").c_str(), WithThousands(r.files).c_str(),
                FormatSizeKB(r.bytes).c_str());
    if (r.skipped) std::printf("%s: %s\n", T("IDS_CLI_SAVE_SKIPPED", "Skipped").c_str(), WithThousands(r.skipped).c_str());
    if (r.refusedFat)
        std::printf("%s: %s\n", T("IDS_CLI_SAVE_FAT_REFUSED", "Too large for FAT").c_str(),
                    WithThousands(r.refusedFat).c_str());
    if (r.incomplete)
        std::printf("%s: %s\n", T("IDS_CLI_SAVE_INCOMPLETE", "Saved with unreadable parts").c_str(),
                    WithThousands(r.incomplete).c_str());
    if (r.writeErrors)
        std::printf("%s: %s (%s)\n", T("IDS_CLI_SAVE_WRITE_ERRORS", "Could not be written").c_str(),
                    WithThousands(r.writeErrors).c_str(), r.writeErrorText.c_str());
    if (r.logged)
        std::printf("%s: %s (%s)\n", T("IDS_CLI_SAVE_LOGGED", "Not saved, listed in the log").c_str(),
                    WithThousands(r.logged).c_str(), r.logPath.c_str());
    else if (!r.logPath.empty())
        std::printf("%s: %s\n", T("IDS_CLI_SAVE_LOG", "Log").c_str(), r.logPath.c_str());
}

// Exit code of a finished save: write errors outrank read errors.
int SaveExitCode(const SaveResult& r, int scanCode) {
    if (r.writeErrors || r.archiveFailed) return kExitWriteErrors;
    if (r.incomplete) return kExitReadErrors;
    return scanCode;
}

// Saves every volume's ticked items onto one disc or into one ISO image file, as one saving
// operation of the driver: a folder "Partition N" for each volume when there are several.
int RunDiscSave(const std::vector<DiscVolume>& volumes, const RecoverOptions& o, RecoveryMode mode, uint8_t collision,
                CliMessages& msgs) {
    SaveRequest req;
    req.collisionMode = collision;
    req.deletedOnly = o.deletedOnly;
    req.messages = &msgs;
    req.replaceExisting = o.overwrite;
    if (collision == kCollisionAsk) req.askRename = &AskNewName;
    DiscControl control;
    DiscRequest disc;
    disc.isoPath = o.iso;
    disc.recorder = o.burn;
    disc.erase = o.erase;
    disc.control = &control;
    SaveResult result;
    auto save = [&](CPhysicalDisk&, ScanContext& ctx) {
        result = SaveToDisc(volumes, ctx, req, disc);
        return OutcomeOf(result);
    };
    const std::string where = o.iso.empty() ? o.burn : o.iso;
    Engines engines = MakeEngines();
    // An image file is saved like a folder; a disc is the saving operation's second destination.
    if (o.iso.empty())
        engines.burnToDisc = save;
    else
        engines.saveToFolder = save;
    CliFrontEnd fe(o.scan.quiet || collision == kCollisionAsk);
    CScanDriver run(*volumes.front().media, engines, fe);
    if (o.iso.empty()) {
        run.SetSaveDestination(where, 1, RecorderName(o.burn));
        run.SetDiscControl(&control);
    } else {
        run.SetSaveDestination(where, 0);
    }
    if (run.Start(OperationKind::Save, mode)) fe.RunToEnd(run);
    for (const auto& n : fe.Notices()) std::fprintf(stderr, "%s\n", n.c_str());
    if (run.CancelConfirmed() || result.cancelled) {
        // Nothing on a disc or in an image that was not completed counts as saved.
        std::printf("%s\n", T("IDS_CLI_DISC_CANCELLED", "The disc or image was not completed; nothing was saved.").c_str());
        return kExitCancelled;
    }
    if (result.archiveFailed) return kExitWriteErrors; // told already
    PrintSaveResult(result, where);
    return SaveExitCode(result, kExitOk);
}

int RunRecover(RecoverOptions o) {
    // A folder name ending in .zip means an archive, as the docs say.
    if (!o.to.empty() && o.zip.empty() && IsZipDestination(o.to)) {
        o.zip = o.to;
        o.to.clear();
    }
    const bool toDisc = !o.burn.empty() || !o.iso.empty();
    if (int(!o.to.empty()) + int(!o.zip.empty()) + int(!o.burn.empty()) + int(!o.iso.empty()) != 1) {
        std::fprintf(stderr, "kestrin: %s\n",
                     T("IDS_CLI_ONE_DESTINATION", "give one of --to DIR, --zip FILE, --burn DRIVE or --iso FILE").c_str());
        return kExitUsage;
    }
    if (o.erase && o.burn.empty()) {
        std::fprintf(stderr, "kestrin: %s\n", T("IDS_CLI_ERASE_NEEDS_BURN", "--erase goes with --burn DRIVE").c_str());
        return kExitUsage;
    }
    if (!o.zip.empty() && !IsZipDestination(o.zip)) {
        std::fprintf(stderr, "kestrin: %s\n", T("IDS_CLI_ZIP_NAME", "--zip needs a file name ending in .zip").c_str());
        return kExitUsage;
    }
    if (!o.zip.empty() && o.scan.partition == "all") {
        std::fprintf(stderr, "kestrin: %s\n",
                     T("IDS_CLI_ZIP_ONE_VOLUME", "a zip archive holds one volume; choose one with --partition N").c_str());
        return kExitUsage;
    }
    uint8_t collision = CollisionModeOf(o.collision);
    if (!collision) {
        std::fprintf(stderr, "kestrin: %s\n", T("IDS_CLI_ON_COLLISION", "--on-collision takes rename, replace, skip or ask").c_str());
        return kExitUsage;
    }
    std::string destination = !o.to.empty() ? o.to : !o.zip.empty() ? o.zip : !o.iso.empty() ? o.iso : o.burn;
    const bool fromSession = EndsWithNoCase(o.scan.source, ".tks4");
    // Every output is checked against the source before anything is scanned or made.
    auto checkOutputs = [&](const CPhysicalDisk* media, const std::string& alsoSource) {
        std::vector<platform::FileIdentity> ids;
        if (media) ids = SourceIdentities(*media);
        AddSourcePath(ids, o.scan.source);
        if (!alsoSource.empty()) AddSourcePath(ids, alsoSource);
        PlannedOutput out{o.zip.empty() ? PlannedOutput::Kind::Folder : PlannedOutput::Kind::File, destination};
        bool overwrite = o.overwrite;
        if (!o.iso.empty()) out.kind = PlannedOutput::Kind::File;
        if (!o.burn.empty()) {
            // A pseudo-drive writes into a file, which is then the medium: writing over what it
            // holds is erasing it. A real recorder must not be the source device.
            const bool pseudo = o.burn.rfind("stdio:", 0) == 0;
            out = {pseudo ? PlannedOutput::Kind::File : PlannedOutput::Kind::Device, pseudo ? o.burn.substr(6) : o.burn};
            overwrite = overwrite || o.erase || !pseudo;
        }
        return CheckPlannedOutputs({out}, ids, overwrite);
    };

    // The volumes to save: from a recovery session, or from a scan made now.
    struct Volume {
        int partition = 0;
        CPhysicalDisk* media = nullptr;
        CNode* top = nullptr;
    };
    std::vector<Volume> volumes;
    RecoveryMode mode = RecoveryMode::DeletedFiles;
    SessionData session;
    ScanRun run;
    int exitCode = kExitOk;
    CliMessages msgs;
    if (fromSession) {
        if (!o.scan.lang.empty() && !ChooseLanguage(o.scan.lang)) return kExitUsage;
        if (!ReadSession(o.scan.source, {}, session, msgs) || !session.media) {
            if (msgs.shown.empty()) std::fprintf(stderr, "kestrin: %s\n", T("IDS_CLI_SESSION_NO_SOURCE", "the session holds no source").c_str());
            return kExitUsage;
        }
        if (!checkOutputs(session.media.get(), ToUtf8(session.sourcePath))) return kExitUsage;
        mode = session.mode;
        volumes.push_back({0, session.media.get(), session.top.get()});
    } else {
        // --types chooses what is saved; the scan itself looks for everything, since file
        // systems hold types that no signature describes.
        ScanOptions scanOptions = o.scan;
        scanOptions.types.clear();
        scanOptions.beforeScan = [&](const OpenedSource& src) { return checkOutputs(src.media.get(), {}); };
        int rc = RunScan(scanOptions, run);
        if (rc != 0 && run.volumes.empty()) return rc;
        exitCode = ExitCodeOf(run);
        if (exitCode == kExitCancelled) {
            std::fprintf(stderr, "%s\n", T("IDS_CLI_CANCELLED").c_str());
            return exitCode;
        }
        mode = run.mode;
        for (auto& v : run.volumes) volumes.push_back({v.partition, run.src.media.get(), v.tree.get()});
    }
    if (volumes.size() > 1 && !o.zip.empty()) {
        std::fprintf(stderr, "kestrin: %s\n",
                     T("IDS_CLI_ZIP_ONE_VOLUME", "a zip archive holds one volume; choose one with --partition N").c_str());
        return kExitUsage;
    }

    // Nothing matched: say so, make nothing, and exit with a code of its own.
    uint64_t anything = 0;
    for (auto& v : volumes)
        if (v.top) anything += TickFiles(v.top, o);
    if (anything == 0) {
        // A choice that matched nothing has its own exit code; a scan that found no files at all
        // finished as asked (like `scan` on an empty volume).
        bool filtered = !o.select.empty() || !o.scan.types.empty() || o.deletedOnly;
        if (filtered) {
            std::printf("%s\n", T("IDS_CLI_NOTHING_TO_SAVE", "Nothing to save: no file matches.").c_str());
            return kExitNothingToSave;
        }
        std::printf("%s\n", T("IDS_CLI_NOTHING_FOUND", "Nothing to save: the scan found no files.").c_str());
        return exitCode;
    }
    if (toDisc) {
        std::vector<DiscVolume> disc;
        for (auto& v : volumes) {
            if (!v.top || TickFiles(v.top, o) == 0) continue;
            std::string folder = volumes.size() > 1 ? "Partition " + std::to_string(v.partition) : std::string();
            disc.push_back({v.media, v.top, folder});
        }
        return std::max(exitCode, RunDiscSave(disc, o, mode, collision, msgs));
    }
    if (!o.to.empty()) {
        std::error_code ec;
        std::filesystem::create_directories(o.to, ec);
        if (!std::filesystem::is_directory(o.to, ec)) {
            std::fprintf(stderr, "kestrin: %s: %s\n", o.to.c_str(),
                         ec ? ec.message().c_str()
                            : T("IDS_CLI_NOT_WRITABLE_FOLDER", "not a folder that can be written").c_str());
            return kExitUsage;
        }
    }

    for (auto& v : volumes) {
        if (!v.top) continue;
        std::string dest = destination;
        if (volumes.size() > 1) {
            std::printf("%s:\n", Tf("IDS_CLI_PARTITION_N", std::to_string(v.partition), "Partition %s").c_str());
            if (TickFiles(v.top, o) == 0) {
                std::printf("%s\n", T("IDS_CLI_NOTHING_TO_SAVE", "Nothing to save: no file matches.").c_str());
                continue;
            }
            dest = (std::filesystem::path(destination) / ("Partition " + std::to_string(v.partition))).string();
            std::error_code ec;
            std::filesystem::create_directories(dest, ec);
        }
        SaveRequest check;
        check.destination = dest;
        check.deletedOnly = o.deletedOnly;
        CapturedMessages checkMsgs;
        if (!CheckDestination(*v.media, v.top, check, checkMsgs)) {
            // An image file is never written by a save, so its own file system may take the
            // result; disks and volumes are refused.
            bool imageOnSameDrive = v.media->GetDeviceKind() == kNotByName && checkMsgs.shown.size() == 1 &&
                                    checkMsgs.shown[0].id == "IDS_TRYING_TO_SAVE_DATA_ON_SAME";
            if (!imageOnSameDrive) {
                for (auto& m : checkMsgs.shown) msgs.Show(m);
                return kExitUsage;
            }
        }
        bool cancelled = false;
        SaveResult r = RunSave({v.media, v.top, dest}, o, mode, collision, msgs, cancelled);
        PrintSaveResult(r, dest);
        if (cancelled) {
            std::printf("%s\n", T("IDS_CLI_SAVE_CANCELLED", "The save was cancelled.").c_str());
            return kExitCancelled;
        }
        exitCode = std::max(exitCode, SaveExitCode(r, kExitOk)); // 4 over 3 over 0
    }
    return exitCode;
}

void AddRecoverVerb(CLI::App& app, VerbResult& result) {
    auto o = std::make_shared<RecoverOptions>();
    CLI::App* sub = app.add_subcommand("recover", "Scan a source (or open a .tks4 session) and save what was found");
    AddScanOptions(sub, o->scan, false, true);
    sub->add_option("--to", o->to, "Folder to save into (made when missing; a name ending in .zip makes an archive)")
        ->check(PathValue());
    sub->add_option("--zip", o->zip, "Zip archive to save into")->check(PathValue());
    sub->add_flag("--overwrite", o->overwrite, "Replace an existing zip archive or ISO image file of that name");
    sub->add_option("--burn", o->burn,
                    "Write to a disc in this recorder (as `kestrin drives` lists them, or stdio:FILE for a file "
                    "written like a disc)")
        ->check(PathValue());
    sub->add_option("--iso", o->iso, "Write an ISO 9660 image file instead of a disc")->check(PathValue());
    sub->add_flag("--erase", o->erase, "Erase a rewritable disc that holds data before writing (with --burn)");
    sub->add_option("--select", o->select, "Only files whose path or name matches one of these patterns")
        ->expected(1, -1);
    sub->add_flag("--deleted-only", o->deletedOnly, "Only deleted items");
    sub->add_option("--on-collision", o->collision,
                    "When a name is taken or refused: rename (0.jpg, 1.jpg, ...), replace (the item's own number "
                    "first), skip, or ask");
    sub->callback([o, &result] { result.exitCode = RunRecover(*o); });
}

void AddImageVerb(CLI::App& app, VerbResult& result) {
    struct ImageOptions {
        std::string source, out, partition;
        uint32_t sectorSize = 0;
        bool quiet = false;
        bool overwrite = false;
    };
    auto o = std::make_shared<ImageOptions>();
    CLI::App* sub = app.add_subcommand("image", "Copy a disk, volume or partition into an image file");
    sub->add_option("SOURCE", o->source, "Device (/dev/sdb), disk number or image file")->required();
    sub->add_option("OUT", o->out, "Image file to write")->required()->check(PathValue());
    sub->add_option("--partition", o->partition, "Only this partition, as `kestrin partitions` numbers it")
        ->check(PartitionValue(false));
    sub->add_flag("--quiet", o->quiet, "No progress display");
    sub->add_flag("--overwrite", o->overwrite, "Replace an existing image file (and its .map) of that name");
    AddSectorSizeOption(sub, o->sectorSize);
    sub->callback([o, &result] {
        OpenedSource src;
        std::string error;
        if (!OpenSource(o->source, src, error, o->sectorSize)) {
            std::fprintf(stderr, "kestrin: %s\n", error.c_str());
            result.exitCode = kExitUsage;
            return;
        }
        if (OutputCheck check = CheckImageTarget(src, o->source, o->out, o->overwrite); !check.ok()) {
            std::fprintf(stderr, "kestrin: %s\n", TextOf(DescribeOutputProblem(check)).c_str());
            result.exitCode = kExitUsage;
            return;
        }
        // --partition N is entry N - 1 of the list; without it the whole source is copied.
        unsigned long n = o->partition.empty() ? 0 : std::stoul(o->partition);
        bool badNumber = !o->partition.empty() && (n == 0 || n > src.partitions.size());
        if (badNumber || !SelectImageRange(src, int(n) - 1)) {
            std::fprintf(stderr, "kestrin: %s\n%s",
                         Tf("IDS_CLI_NO_PARTITION_NUMBER", o->partition, "there is no partition %s").c_str(),
                         DescribePartitions(src).c_str());
            result.exitCode = kExitUsage;
            return;
        }
        CliMessages msgs;
        ImageResult r;
        Engines engines = MakeEngines();
        engines.createImage = [&](CPhysicalDisk& m, ScanContext& ctx) {
            r = CreateDiskImage(m, o->out, ctx, msgs, o->overwrite);
            return OutcomeOf(r);
        };
        CliFrontEnd fe(o->quiet);
        CScanDriver driver(*src.media, engines, fe);
        if (driver.Start(OperationKind::CreateImage, RecoveryMode::DeletedFiles)) fe.RunToEnd(driver);
        if (r.refused) {
            result.exitCode = kExitUsage;
            return;
        }
        if (driver.CancelConfirmed() || r.cancelled) {
            std::printf("%s\n", T("IDS_CLI_IMAGE_CANCELLED", "The copy was cancelled; no image was written.").c_str());
            result.exitCode = kExitCancelled;
            return;
        }
        if (r.error) {
            result.exitCode = kExitWriteErrors;
            return;
        }
        std::printf("%s %s: %s %s\n", T("IDS_CLI_IMAGE_WRITTEN", "Image written to").c_str(), o->out.c_str(),
                    WithThousands(r.sectors).c_str(), T("IDS_CLI_SECTORS", "sectors").c_str());
        if (r.badSectors)
            std::printf("%s: %s (%s)\n", T("IDS_CLI_IMAGE_BAD_SECTORS", "Unreadable sectors written as zeros").c_str(),
                        WithThousands(r.badSectors).c_str(), r.mapPath.c_str());
        result.exitCode = r.badSectors ? kExitReadErrors : kExitOk;
    });
}

} // namespace

void AddRecoverVerbs(CLI::App& app, VerbResult& result) {
    AddRecoverVerb(app, result);
    AddImageVerb(app, result);
}

} // namespace kestrin::cli
