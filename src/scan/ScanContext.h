#pragma once
// What an engine receives from the driver in place of the progress window: the operation
// record, the message sink, the pause gate and the found-item tree to fill.
#include <cstdint>
#include <vector>

#include "scan/ScanOperation.h"

namespace kestrin {

class CNode;
struct SignatureRecord;
class IRecordSearchHook;

struct ScanContext {
    ScanOperation& op;
    IScanEvents& events;
    PauseGate& gate;
    uint32_t mode = kModeDeletedFiles;
    // Top of the found-item tree ("_R", flags 3); made by the driver before any stage runs.
    CNode* top = nullptr;
    // Ticked rows of the signature list, in row order (signature scan only).
    const std::vector<SignatureRecord>* signatures = nullptr;
    // The MFT-record test the signature loop runs on every sector for scan kinds 1 and 3;
    // supplied by the NTFS side, null when that test is not part of this scan.
    IRecordSearchHook* recordSearch = nullptr;

    // Every state poll goes through here: it blocks while the front end has a question open.
    uint32_t PollState() {
        gate.Wait();
        return op.state.load(std::memory_order_relaxed);
    }
    bool StopRequested() {
        uint32_t s = PollState();
        return s == kStateCancel || s == kStateStopFollowOn;
    }
    // Waits at the gate too: an open question must not see the display change under it.
    void Progress(int64_t done, int64_t total) {
        gate.Wait();
        op.done.store(done, std::memory_order_relaxed);
        op.total.store(total, std::memory_order_relaxed);
        events.OnProgress();
    }
};

} // namespace kestrin
