#include "fs/fat/CFolderWalker.h"

#include <vector>

#include "fs/VolumeHandle.h"
#include "fs/VolumeTree.h"
#include "job/ScanContext.h"

namespace kestrin {

CFolderWalker::CFolderWalker(CFatVolume& volume, ScanContext* ctx, uint32_t rootId)
    : m_vol(volume), m_ctx(ctx), m_root(MakeVolumeRoot(rootId)) {}

CFolderWalker::~CFolderWalker() {
    if (m_root) FreeScanEntries(m_root);
}

ScanEntry* CFolderWalker::TakeRoot() {
    ScanEntry* r = m_root;
    m_root = nullptr;
    if (r && !m_times.Empty() && !r->volume) KeepTimes(*r, m_vol.Media(), std::move(m_times));
    m_times = {};
    return r;
}

void CFolderWalker::TakeTimes(const ScanEntry* to, const ScanEntry* from) { m_times.Move(to, from); }

bool CFolderWalker::MustStop() { return m_ctx && m_ctx->MustStop(m_vol.Media()); }

void CFolderWalker::Prepend(ScanEntry* folder, ScanEntry* entry) {
    entry->parent = folder;
    entry->nextSibling = folder->firstChild;
    folder->firstChild = entry;
    ++m_made;
    if (m_ctx && !(entry->flags & kNodeFolder)) m_ctx->op.found.NoteFile(!(entry->flags & kNodeInUse));
}

bool CFolderWalker::ReadFolderTree(ScanEntry* top) {
    if (!top) return false;
    if (MustStop()) return true;
    ReadFolder(top);
    // Depth first in child order, with an explicit stack: deep trees stay off the call stack.
    std::vector<ScanEntry*> stack{top->firstChild};
    while (!stack.empty()) {
        ScanEntry* child = stack.back();
        if (!child) {
            stack.pop_back();
            continue;
        }
        stack.back() = child->nextSibling;
        if (MustStop()) return true;
        if (m_ctx) m_ctx->Progress(int64_t(++m_visited), int64_t(m_made));
        if (child->flags & kNodeFolder) {
            ReadFolder(child);
            stack.push_back(child->firstChild);
        }
    }
    return false;
}

} // namespace kestrin
