#pragma once
// What the FAT and exFAT folder walks share: the volume root they fill, the depth-first descent
// with its stop test and progress, and the adding of entries. Each format reads and parses its
// own folders.
#include <cstdint>

#include "fs/CNode.h"
#include "fs/ItemTimes.h"
#include "fs/fat/CFatVolume.h"

namespace kestrin {

struct ScanContext;

class CFolderWalker {
public:
    // Makes the volume root "." (recordId `rootId`) with "Lost". `ctx` may be null (tests,
    // fuzzing): then there is no progress and no stop.
    CFolderWalker(CFatVolume& volume, ScanContext* ctx, uint32_t rootId);
    virtual ~CFolderWalker();
    CFolderWalker(const CFolderWalker&) = delete;
    CFolderWalker& operator=(const CFolderWalker&) = delete;

    ScanEntry* Root() { return m_root; }
    // Hands the tree over (the walker no longer frees it), with the entries' full times on a
    // provisional handle of its root.
    virtual ScanEntry* TakeRoot();

    // Reads `top` and, depth first in child order, every folder below it. Before `top` and before
    // each item below it the walk tests for a stop request or a source that went away, and ends
    // there; what was read stays in the tree. True when it ended so.
    bool ReadFolderTree(ScanEntry* top);
    // Reads one folder's entries into its children.
    virtual void ReadFolder(ScanEntry* folder) = 0;

protected:
    // Puts `entry` first among the children of `folder`.
    void Prepend(ScanEntry* folder, ScanEntry* entry);
    // `to` takes the full times read for `from` (which has none after).
    void TakeTimes(const ScanEntry* to, const ScanEntry* from);

    CFatVolume& m_vol;
    ScanContext* m_ctx;
    ScanEntry* m_root = nullptr;
    // The full times of the entries read; handed to the volume root with the tree.
    KeptTimes m_times;

private:
    bool MustStop();

    uint64_t m_made = 0, m_visited = 0;
};

} // namespace kestrin
