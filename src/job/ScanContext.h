#pragma once
// What an engine receives from the driver in place of the progress window: the operation
// record, the message sink, the pause gate and the found-item tree to fill.
#include <cstdint>
#include <vector>

#include "job/Outcome.h"
#include "job/ScanOperation.h"
#include "storage/CStorageMedia.h"

namespace kestrin {

class CNode;
struct SignatureRecord;

struct ScanContext {
    ScanOperation& op;
    IScanEvents& events;
    PauseGate& gate;
    RecoveryMode mode = RecoveryMode::DeletedFiles;
    // Top of the found-item tree ("_R", flags 3); made by the driver before any stage runs.
    CNode* top = nullptr;
    // Ticked rows of the signature list, in row order (signature scan only).
    const std::vector<SignatureRecord>* signatures = nullptr;

    // Every state poll goes through here: it blocks while the front end has a question open.
    OperationState PollState() {
        gate.Wait();
        return op.state.load(std::memory_order_relaxed);
    }
    bool StopRequested() {
        OperationState s = PollState();
        return s == OperationState::Cancel || s == OperationState::StopFollowOn;
    }
    // What every walk tests before its next read: a stop, or a source that went away.
    bool MustStop(const CStorageMedia& media) { return media.DeviceGone() || StopRequested(); }
    // Waits at the gate too: an open question must not see the display change under it.
    void Progress(int64_t done, int64_t total) {
        gate.Wait();
        op.done.store(done, std::memory_order_relaxed);
        op.total.store(total, std::memory_order_relaxed);
        events.OnProgress();
    }
    // The same, counted in units of `unitBytes` bytes each (sectors, clusters) rather than items.
    void Progress(int64_t done, int64_t total, uint32_t unitBytes) {
        gate.Wait();
        op.unitBytes.store(unitBytes, std::memory_order_relaxed);
        op.done.store(done, std::memory_order_relaxed);
        op.total.store(total, std::memory_order_relaxed);
        events.OnProgress();
    }
};

// Watches one walk over `media`: Finish gives its outcome from the stop state and what the
// media's reads reported since the watch began.
class WalkWatch {
public:
    explicit WalkWatch(const CStorageMedia& media) : m_media(media), m_failures(media.ReadFailures()) {}
    Outcome Finish(ScanContext& ctx, bool corrupt = false) const {
        if (ctx.StopRequested()) return Outcome::Stopped;
        if (m_media.DeviceGone()) return Outcome::DeviceGone;
        if (m_media.ReadFailures() != m_failures) return Outcome::ReadFailed;
        return corrupt ? Outcome::Corrupt : Outcome::Ok;
    }

private:
    const CStorageMedia& m_media;
    uint64_t m_failures;
};

} // namespace kestrin
