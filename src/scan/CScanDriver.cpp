#include "scan/CScanDriver.h"

#include <cstdio>
#include <exception>

#include "fs/CNode.h"
#include "fs/VolumeHandle.h"
#include "fs/VolumeTree.h"
#include "scan/MediaTypes.h"
#include "storage/CPhysicalDisk.h"

namespace kestrin {

CScanDriver::CScanDriver(CPhysicalDisk& media, Engines engines, IScanEvents& events)
    : m_media(media), m_engines(std::move(engines)), m_events(events) {}

CScanDriver::~CScanDriver() {
    // A front end that goes away mid-scan must not leave the worker held at a closed gate.
    if (m_worker.joinable()) {
        RequestCancel();
        m_worker.join();
    }
}

void CScanDriver::SetSaveDestination(std::string path, uint32_t destinationKind, std::string recorderName) {
    m_destination = std::move(path);
    m_destinationKind = destinationKind;
    m_recorderName = std::move(recorderName);
}

std::optional<OperationKind> CScanDriver::StartForSource(RecoveryMode mode, bool imageCreationPending) {
    std::optional<OperationKind> kind = ChooseOperationKind(mode, m_media.GetSourceKind(), imageCreationPending);
    if (!kind) return std::nullopt;
    m_op.deletedOnly.store(DeletedOnlyFor(mode) ? 1 : 0);
    if (!Start(*kind, mode)) return std::nullopt;
    return kind;
}

bool CScanDriver::Start(OperationKind kind, RecoveryMode mode) {
    if (m_running.load()) return false;
    if (m_worker.joinable()) m_worker.join();
    m_mode = mode;

    UserText status{StatusTextId(kind, mode, m_media.GetSourceKind(), m_destinationKind == 1)};
    // Saving names the destination path, or the recorder for a disc: "<text> <where>...".
    if (kind == OperationKind::Save) status.arg = (m_destinationKind == 1 ? m_recorderName : m_destination) + "...";
    {
        std::lock_guard lk(m_infoMutex);
        m_stagesRun.clear();
    }
    SetStatus(std::move(status));

    m_op.kind.store(kind);
    m_op.done.store(0);
    m_op.total.store(0);
    m_op.currentSector.store(0);
    m_op.endSector.store(0);
    m_op.state.store(OperationState::Running);
    m_cancelled.store(false);
    m_outcome = Outcome::Ok;
    m_completionFlag.store(false);
    m_stageFailed.store(false);
    m_op.unitBytes.store(0);
    // The counts belong to the tree: a search that goes on as a signature scan keeps both.
    if (!m_top) {
        m_top.reset(MakeTopNode());
        m_op.found.Clear();
    }

    m_running.store(true);
    m_worker = std::thread([this, kind] { Worker(kind); });
    return true;
}

void CScanDriver::Wait() {
    if (m_worker.joinable()) m_worker.join();
}

bool CScanDriver::WaitFor(int ms) {
    std::unique_lock lk(m_doneMutex);
    if (!m_doneCv.wait_for(lk, std::chrono::milliseconds(ms), [&] { return !m_running.load(); })) return false;
    lk.unlock();
    Wait();
    return true;
}

bool CScanDriver::Running() const { return m_running.load(); }

void CScanDriver::BeginCancelQuestion() { m_gate.Close(); }

void CScanDriver::AnswerCancelQuestion(bool yes) {
    if (yes) Cancel();
    else m_gate.Open();
}

void CScanDriver::RequestCancel() { Cancel(); }

void CScanDriver::Cancel() {
    // A disc being erased or written: its two flags are cleared before the stop state is set, so
    // the save cannot move on to its next step meanwhile; then the recorder is stopped and given
    // time to come to rest before the user is told.
    bool disc = m_op.kind.load() == OperationKind::Save && m_destinationKind == 1 && m_disc && m_running.load() &&
                m_disc->ClaimStop();
    m_cancelled.store(true);
    m_op.state.store(OperationState::Cancel);
    m_gate.Open();
    if (!disc) return;
    m_disc->StopRecorder();
    m_disc->Settle();
    m_events.OnNotice(UserText{"IDS_ERASE_BURN_CANCELLED", "", false,
                               "Erasing or writing the disc was cancelled."});
}

void CScanDriver::SkipRest() {
    if (!m_running.load()) return;
    OperationState running = OperationState::Running;
    m_op.state.compare_exchange_strong(running, OperationState::StopFollowOn);
}

bool CScanDriver::NoPartitionFound() const {
    // Records with a file system the engines can scan count; the placeholder head (element 0 of
    // the table list) and entries of unknown kind do not.
    auto any = [](const std::vector<PartitionRecord>& v, size_t from) {
        for (size_t i = from; i < v.size(); ++i)
            if (v[i].fsKind != FsKind::None) return true;
        return false;
    };
    if (any(m_media.Partitions(), 1) || any(m_media.SecondPartitions(), 0)) return false;
    return !TreeHasItems();
}

bool CScanDriver::TreeHasItems() const {
    // The record search files what it finds under a volume root of its own; a root holding no
    // more than its empty "Lost" folder is a search that found nothing.
    bool found = false;
    ForEachNode(m_top.get(), [&](CNode* n) {
        bool emptyShell = n->IsFolder() && !n->firstChild && (n->name == u"Lost" || n->name == u".");
        bool volumeRoot = n->parent == m_top.get() && n->name == u".";
        if (!emptyShell && !volumeRoot) found = true;
    });
    return found;
}

bool CScanDriver::ContinueAsSignatureScan() {
    if (m_running.load()) return false;
    m_skipFlag.store(true);
    return Start(OperationKind::SignatureScan, m_mode);
}

uint64_t CScanDriver::FirstSector() const { return m_media.GetFirstSector(); }

UserText CScanDriver::StatusLine() const {
    std::lock_guard lk(m_infoMutex);
    return m_status;
}

UserText CScanDriver::DetailRow(int index) const { return index == 1 ? UserText{kDetailRowTwoId} : UserText{}; }

std::vector<Stage> CScanDriver::StagesRun() const {
    std::lock_guard lk(m_infoMutex);
    return m_stagesRun;
}

std::vector<UserText> CScanDriver::MissingStages() const {
    std::lock_guard lk(m_infoMutex);
    return m_missing;
}

std::unique_ptr<CNode> CScanDriver::ReleaseTree() {
    Wait();
    return std::move(m_top);
}

void CScanDriver::SetStatus(UserText text) {
    {
        std::lock_guard lk(m_infoMutex);
        m_status = text;
    }
    m_events.OnStatus(text);
}

void CScanDriver::MissingStage(Stage s) {
    UserText text{"IDS_CLI_STAGE_NOT_AVAILABLE", StageNameId(s), true, StageNameEnglish(s)};
    {
        std::lock_guard lk(m_infoMutex);
        m_missing.push_back(text);
    }
    m_events.OnNotice(text);
}

std::string StageTitleId(OperationKind kind, Stage stage, RecoveryMode mode, SourceKind sourceKind, bool toDisc) {
    // The search by content that follows a file-system scan names itself; everything else runs
    // under its operation's line.
    if (kind == OperationKind::FileSystemScan && stage == Stage::SignatureScan)
        return IsPhotoMode(mode) ? "IDS_SEARCHING_MUSIC_VIDEO_PHOTOS" : "IDS_SEARCHING_BY_CONTENT";
    return StatusTextId(kind, mode, sourceKind, toDisc);
}

Outcome CScanDriver::RunStage(Stage s, ScanContext& ctx) {
    {
        std::lock_guard lk(m_infoMutex);
        m_stagesRun.push_back(s);
    }
    // Each stage counts its own progress from nothing.
    m_op.done.store(0);
    m_op.total.store(0);
    m_op.unitBytes.store(0);
    m_op.currentSector.store(0);
    m_op.endSector.store(0);
    const OperationKind kind = m_op.kind.load();
    std::string title = StageTitleId(kind, s, m_mode, m_media.GetSourceKind(), m_destinationKind == 1);
    if (s != Stage::PhotoPruning && title != StatusLine().id) {
        UserText line{title};
        SetStatus(std::move(line));
    }
    // The signature scan reads absolute sectors, so its range starts at the media's first sector:
    // 0 for a whole disk, an image or a volume (sectors 0 to the count, as always), the
    // partition's start when a partition was chosen, where 0 would be the wrong place.
    const uint64_t first = m_media.GetFirstSector();
    const uint64_t end = first + m_media.GetSectorCount();
    auto missing = [&] {
        MissingStage(s);
        return Outcome::Ok;
    };
    switch (s) {
    case Stage::FileSystemScan:
        if (!m_engines.fileSystemScan) return missing();
        return m_engines.fileSystemScan(m_media, 1, ctx);
    case Stage::SignatureScan:
        if (!m_engines.signatureScan) return missing();
        return m_engines.signatureScan(m_media, 2, first, end, ctx);
    case Stage::PhotoPruning:
        PruneToMediaFiles(m_top.get());
        return Outcome::Ok;
    case Stage::Preparation:
        if (!m_engines.preparation) return missing();
        return m_engines.preparation(m_media, ctx);
    case Stage::DiskRecordSearch:
        // The record search counts from the start of the selected range: sectors 0 to the count.
        if (!m_engines.diskRecordSearch) return missing();
        return m_engines.diskRecordSearch(m_media, 0, m_media.GetSectorCount(), ctx);
    case Stage::SecondFileSystemScan:
        if (!m_engines.secondFileSystemScan) return missing();
        return m_engines.secondFileSystemScan(m_media, ctx);
    case Stage::SaveToFolder:
        if (!m_engines.saveToFolder) return missing();
        return m_engines.saveToFolder(m_media, ctx);
    case Stage::BurnToDisc:
        if (!m_engines.burnToDisc) return missing();
        return m_engines.burnToDisc(m_media, ctx);
    case Stage::CreateImage:
        if (!m_engines.createImage) return missing();
        return m_engines.createImage(m_media, ctx);
    }
    return Outcome::Ok;
}

void CScanDriver::Note(Outcome o) {
    // A stage that added a volume root leaves the media selecting that volume: the root takes
    // it as its handle, so its items are read back through it later.
    StampVolumes(m_top.get(), m_media);
    std::lock_guard lk(m_infoMutex);
    m_outcome = Worse(m_outcome, o);
}

Outcome CScanDriver::Result() const {
    std::lock_guard lk(m_infoMutex);
    return m_outcome;
}

void CScanDriver::Worker(OperationKind kind) {
    ScanContext ctx{m_op, m_events, m_gate, m_mode, m_top.get(), m_signatures};
    try {
        switch (kind) {
        case OperationKind::FileSystemScan: {
            // A confirmed stop or a source that went away during the file-system stage ends the
            // operation: the content search never starts after the user said Yes.
            Outcome walked = RunStage(Stage::FileSystemScan, ctx);
            Note(walked);
            if (!m_op.deletedOnly.load() && !Ends(walked)) Note(RunStage(Stage::SignatureScan, ctx));
            if (IsPhotoMode(m_mode)) RunStage(Stage::PhotoPruning, ctx);
            break;
        }
        case OperationKind::Save:
            for (Stage s : StagesOf(kind, m_mode, m_destinationKind)) {
                Note(RunStage(s, ctx));
                if (Ends(m_outcome)) break;
            }
            break;
        case OperationKind::PartitionSearch:
            Note(RunStage(Stage::Preparation, ctx));
            if (!Ends(m_outcome)) Note(RunStage(Stage::DiskRecordSearch, ctx));
            break;
        case OperationKind::SmartScan:
            Note(RunStage(Stage::SecondFileSystemScan, ctx));
            break;
        case OperationKind::SignatureScan:
            Note(RunStage(Stage::SignatureScan, ctx));
            break;
        case OperationKind::CreateImage:
            Note(RunStage(Stage::CreateImage, ctx));
            break;
        default:
            break;
        }
        // The found volumes' deleted files are judged against their allocation maps once the
        // stages that find them are over.
        if ((kind == OperationKind::FileSystemScan || kind == OperationKind::PartitionSearch ||
             kind == OperationKind::SmartScan) &&
            m_engines.judgeConditions && m_top && !ctx.StopRequested())
            m_engines.judgeConditions(m_media, m_top.get(), ctx);
    } catch (const std::exception&) {
        // Engines report nothing while walking; an allocation failure ends the stage and the
        // operation finishes with what was found.
        m_stageFailed.store(true);
    }
    m_op.state.store(OperationState::Finished);
    if (kind == OperationKind::PartitionSearch || kind == OperationKind::CreateImage) m_completionFlag.store(true);
    {
        std::lock_guard lk(m_doneMutex);
        m_running.store(false);
    }
    m_doneCv.notify_all();
    m_events.OnEnd();
}

} // namespace kestrin
