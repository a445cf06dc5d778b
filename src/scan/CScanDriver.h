#pragma once
// The scan driver: sets up one long operation (kind, mode, status line, state), runs the kind's
// stages in order on one worker thread and talks to the front end only through IScanEvents. The
// front end (command line, desktop window, tests) answers the cancel question and the offer that
// follows a partition search that found nothing.
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "job/DiscControl.h"
#include "scan/Engines.h"
#include "scan/OperationRules.h"
#include "job/ScanContext.h"
#include "job/ScanOperation.h"

namespace kestrin {

class CNode;
class CPhysicalDisk;
struct SignatureRecord;

// The line a stage runs under: its operation's status line, except the search by content that
// follows a file-system scan, which names itself.
std::string StageTitleId(OperationKind kind, Stage stage, RecoveryMode mode, SourceKind sourceKind, bool toDisc = false);

class CScanDriver {
public:
    CScanDriver(CPhysicalDisk& media, Engines engines, IScanEvents& events);
    ~CScanDriver(); // waits for the worker
    CScanDriver(const CScanDriver&) = delete;
    CScanDriver& operator=(const CScanDriver&) = delete;

    // Rows of the signature list the signature stage searches (kept by the caller).
    void SetSignatures(const std::vector<SignatureRecord>* rows) { m_signatures = rows; }
    // Destination of a save (OperationKind::Save): 0 folder or zip, 1 disc, anything else saves nothing.
    void SetSaveDestination(std::string path, uint32_t destinationKind, std::string recorderName = {});
    // The recorder's state during a save to disc (kept by the caller), for a cancel to stop it.
    void SetDiscControl(DiscControl* control) { m_disc = control; }

    // Source confirmed in `mode`: chooses the kind from the media's source kind, sets deleted-only
    // and starts. Returns the kind, or -1 when no scan is defined for the source (nothing runs).
    std::optional<OperationKind> StartForSource(RecoveryMode mode, bool imageCreationPending = false);
    // Starts an operation of `kind`: lost-data flag, status line and detail rows, OperationState::Running, then
    // the worker. False when a worker is still running (there is never a second one).
    bool Start(OperationKind kind, RecoveryMode mode);
    // Blocks until the worker has ended; WaitFor gives up after `ms` milliseconds.
    void Wait();
    bool WaitFor(int ms);
    bool Running() const;

    // The cancel question: Begin holds the worker at its next state poll; the answer lets it go.
    // Yes sets the cancel state first, so the engine stops at the poll it is held in.
    void BeginCancelQuestion();
    void AnswerCancelQuestion(bool yes);
    // Cancel without a question (no terminal to ask, or the window is closing).
    void RequestCancel();
    // Ends the running stage early without cancelling: what it found so far is kept and shown
    // as a finished result (the Skip button of the whole-drive search).
    void SkipRest();
    bool CancelConfirmed() const { return m_cancelled; }
    // How the last operation's stages ended, the worst first (valid once it finished).
    Outcome Result() const;

    // End of a kind-2 search: true when it found no partition with a file system to scan.
    bool NoPartitionFound() const;
    // Whether the tree holds any found item (more than empty volume roots and "Lost" folders).
    bool TreeHasItems() const;
    // The offer after such a search was accepted: the operation goes on as OperationKind::SignatureScan (signature
    // scan of the whole drive) with the same tree. False while the worker runs.
    bool ContinueAsSignatureScan();
    bool SkipFlag() const { return m_skipFlag; }
    // Set at the end of OperationKind::PartitionSearch and OperationKind::CreateImage.
    bool CompletionFlag() const { return m_completionFlag; }
    // An engine threw (out of memory): the stage ended early, the operation finished normally.
    bool StageFailed() const { return m_stageFailed; }

    ScanOperation& Operation() { return m_op; }
    PauseGate& Gate() { return m_gate; }
    OperationKind Kind() const { return m_op.kind.load(); }
    RecoveryMode Mode() const { return m_mode; }
    // First sector of the media's selected range (where the signature scan starts).
    uint64_t FirstSector() const;
    UserText StatusLine() const;
    // The two detail rows: an empty first row and the "this might take a few minutes" text.
    UserText DetailRow(int index) const;
    // The stages that ran in this operation, in order (including those found missing).
    std::vector<Stage> StagesRun() const;
    // Notices about stages that could not run in this build.
    std::vector<UserText> MissingStages() const;

    // The found-item tree ("_R"), made before the first stage; kept across the kind-2-to-4
    // hand-over. Release hands it to the caller once the worker has ended.
    CNode* Top() const { return m_top.get(); }
    std::unique_ptr<CNode> ReleaseTree();

private:
    void Worker(OperationKind kind);
    Outcome RunStage(Stage s, ScanContext& ctx);
    // Folds a stage's outcome into the operation's.
    void Note(Outcome o);
    void MissingStage(Stage s);
    void SetStatus(UserText text);
    // Sets the cancel state and lets the worker go; a disc being erased or written is stopped.
    void Cancel();

    CPhysicalDisk& m_media;
    Engines m_engines;
    IScanEvents& m_events;
    ScanOperation m_op;
    PauseGate m_gate;
    std::thread m_worker;
    std::atomic<bool> m_running{false};
    std::mutex m_doneMutex;
    std::condition_variable m_doneCv;

    RecoveryMode m_mode = RecoveryMode::DeletedFiles;
    const std::vector<SignatureRecord>* m_signatures = nullptr;
    std::string m_destination;
    uint32_t m_destinationKind = 0;
    std::string m_recorderName;
    DiscControl* m_disc = nullptr;
    std::unique_ptr<CNode> m_top;

    mutable std::mutex m_infoMutex;
    UserText m_status;
    std::vector<Stage> m_stagesRun;
    std::vector<UserText> m_missing;

    std::atomic<bool> m_cancelled{false};
    Outcome m_outcome = Outcome::Ok; // guarded by m_infoMutex
    std::atomic<bool> m_skipFlag{false};
    std::atomic<bool> m_completionFlag{false};
    std::atomic<bool> m_stageFailed{false};
};

} // namespace kestrin
