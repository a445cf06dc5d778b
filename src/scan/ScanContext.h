#pragma once
// What an engine receives from the driver in place of the progress window: the operation
// record, the message sink, the pause gate and the found-item tree to fill.
#include <cstdint>
#include <vector>

#include "scan/ScanOperation.h"

namespace kestrin {

class CNode;
struct SignatureRecord;

struct ScanContext {
    ScanOperation& op;
    IScanEvents& events;
    PauseGate& gate;
    uint32_t mode = kModeDeletedFiles;
    // Top of the found-item tree ("_R", flags 3); made by the driver before any stage runs.
    CNode* top = nullptr;
    // Ticked rows of the signature list, in row order (signature scan only).
    const std::vector<SignatureRecord>* signatures = nullptr;

    // Every state poll goes through here: it blocks while the front end has a question open.
    uint32_t PollState() {
        gate.Wait();
        return op.state.load(std::memory_order_relaxed);
    }
    bool StopRequested() {
        uint32_t s = PollState();
        return s == kStateCancel || s == kStateStopFollowOn;
    }
    void Progress(int64_t done, int64_t total) {
        op.done.store(done, std::memory_order_relaxed);
        op.total.store(total, std::memory_order_relaxed);
        events.OnProgress();
    }
};

} // namespace kestrin
