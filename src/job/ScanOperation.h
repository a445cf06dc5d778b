#pragma once
// The record one long operation shares between the worker (engines write done, total and the
// final state) and the front end (reads progress, writes the cancel state).
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace kestrin {

// What one operation does; the values are the kinds the operation record has always held.
enum class OperationKind : uint32_t {
    FileSystemScan = 0,
    Save = 1,
    PartitionSearch = 2,
    SmartScan = 3,
    SignatureScan = 4,
    CreateImage = 6,
};

// The operation's state; the driver alone writes it (engines only read it), the front end asks for
// a stop by writing Cancel. The values are those the operation record has always held.
enum class OperationState : uint32_t {
    Finished = 0,
    StopFollowOn = 1, // a stop of the follow-on signature scan only
    Running = 3,
    Cancel = 4,
};

// The values are the modes' language ids, which session files also store.
enum class RecoveryMode : uint32_t {
    DeletedFiles = 1019,
    LostFiles = 1020,
    Partition = 1021,
    Formatted = 1022,
    DeletedPhotos = 1037,
    LostPhotos = 1038,
};

// Items found so far, for the progress display only: the engines count as they find, the front
// end reads whenever it repaints. The found-item tree stays the one true result.
struct FoundCounts {
    std::atomic<uint64_t> files{0};   // file-system files, existing and deleted
    std::atomic<uint64_t> deleted{0}; // of those, the deleted ones
    std::atomic<uint64_t> carved{0};  // files found by their content
    void NoteFile(bool isDeleted) {
        files.fetch_add(1, std::memory_order_relaxed);
        if (isDeleted) deleted.fetch_add(1, std::memory_order_relaxed);
    }
    void NoteCarved() { carved.fetch_add(1, std::memory_order_relaxed); }
    void Clear() {
        files.store(0);
        deleted.store(0);
        carved.store(0);
    }
};

struct ScanOperation {
    std::atomic<OperationKind> kind{OperationKind::FileSystemScan};
    std::atomic<OperationState> state{OperationState::Finished};
    std::atomic<int64_t> done{0};
    std::atomic<int64_t> total{0};
    std::atomic<uint8_t> deletedOnly{0};
    // Set by a front end that will want the items' full times (a report): walks that would
    // otherwise read them again later keep them as they go.
    std::atomic<uint8_t> keepTimes{0};
    // Scan control block of the signature loop: current sector (written before each chunk)
    // and end sector (written once at the start).
    std::atomic<uint64_t> currentSector{0};
    std::atomic<uint64_t> endSector{0};
    // What one unit of done and total is: 0 an item (a record, an entry, a file), else that many
    // bytes (a sector, a cluster). Set by each stage with its first progress.
    std::atomic<uint32_t> unitBytes{0};
    FoundCounts found;
};

// Stands in for suspending the worker thread: while closed, every state poll of the engines
// blocks, so the worker cannot advance under an open question.
class PauseGate {
public:
    void Close() {
        std::lock_guard lk(m_mutex);
        m_closed = true;
        m_closedFast.store(true, std::memory_order_release);
    }
    void Open() {
        {
            std::lock_guard lk(m_mutex);
            m_closed = false;
            m_closedFast.store(false, std::memory_order_release);
        }
        m_cv.notify_all();
    }
    // Blocks while closed. Cheap when open (one atomic load): engines poll it per sector.
    void Wait() {
        if (!m_closedFast.load(std::memory_order_acquire)) return;
        std::unique_lock lk(m_mutex);
        m_waiting = true;
        m_cv.notify_all();
        m_cv.wait(lk, [&] { return !m_closed; });
        m_waiting = false;
    }
    bool IsClosed() {
        std::lock_guard lk(m_mutex);
        return m_closed;
    }
    // True while the worker sits in Wait (tests use it to prove the worker is held).
    bool WorkerWaiting() {
        std::lock_guard lk(m_mutex);
        return m_waiting;
    }
    // Waits up to `ms` milliseconds for the worker to arrive at the closed gate.
    bool WaitForWorkerHeld(int ms) {
        std::unique_lock lk(m_mutex);
        return m_cv.wait_for(lk, std::chrono::milliseconds(ms), [&] { return m_waiting; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_cv;
    std::atomic<bool> m_closedFast{false};
    bool m_closed = false;
    bool m_waiting = false;
};

// A line the user reads, as the worker knows it: a language id and what fills its "%s" (or
// follows it after a space). The front end looks the text up. `argId` marks an argument that is a
// language id itself (a stage's name). `fallback` is the English text of the id looked up last
// (the argument's when it is an id), for a language file without it. A line with no id is plain
// text from the system (an error's description).
struct UserText {
    std::string id;
    std::string arg;
    bool argId = false;
    std::string fallback;
};

// The worker's side of the progress window: the three messages it sends.
class IScanEvents {
public:
    virtual ~IScanEvents() = default;
    // 0x8001: the stage list is done (status text may be empty).
    virtual void OnEnd() = 0;
    // 0x8002: done/total changed (sent after each batch).
    virtual void OnProgress() = 0;
    // 0x8003: the signature scan starts.
    virtual void OnSignatureScanStart() = 0;
    // A new status line.
    virtual void OnStatus(const UserText& /*text*/) {}
    // A remark the user should still see after the operation, such as a stage that cannot run.
    // Shown as the status line unless the front end keeps remarks apart.
    virtual void OnNotice(const UserText& text) { OnStatus(text); }
};

} // namespace kestrin
