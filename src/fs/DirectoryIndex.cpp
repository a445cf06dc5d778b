#include "fs/DirectoryIndex.h"

#include <algorithm>
#include <new>

#include "fs/VolumeTree.h"

namespace kestrin {

namespace {
// Deeper folder chains than this are taken for a loop: no real volume nests that far, and the
// ancestor test must stay cheap.
constexpr int kMaxAncestorSteps = 4096;
} // namespace

CDirectoryIndex::CDirectoryIndex(ScanEntry* volumeRoot) : m_root(volumeRoot) {
    if (!m_root) return;
    m_lost = LostFolderOf(m_root);
    FindOrAdd(m_root);
    if (m_lost) FindOrAdd(m_lost);
}

ScanEntry* CDirectoryIndex::Find(uint32_t recordId) const {
    auto it = m_folders.find(recordId);
    return it == m_folders.end() ? nullptr : it->second;
}

bool CDirectoryIndex::Add(ScanEntry* e) {
    try {
        m_order.push_back(e);
    } catch (const std::bad_alloc&) {
        return false;
    }
    try {
        m_folders.emplace(e->recordId, e);
    } catch (const std::bad_alloc&) {
        m_order.pop_back();
        return false;
    }
    return true;
}

ScanEntry* CDirectoryIndex::FindOrAdd(ScanEntry* dir) {
    if (ScanEntry* found = Find(dir->recordId)) return found;
    Add(dir); // when it fails, not indexed: it will be placed by its parent or not at all
    return dir;
}

bool CDirectoryIndex::IsAncestorOrSelf(const ScanEntry* candidate, const ScanEntry* of) const {
    int steps = 0;
    for (const ScanEntry* p = of; p; p = p->parent)
        if (p == candidate || ++steps > kMaxAncestorSteps) return true;
    return false;
}

bool CDirectoryIndex::InsertUnderParent(ScanEntry* entry) {
    if (!entry) return true;
    ScanEntry* folder = Find(entry->parentRecordId);
    if (folder) {
        // A folder may not end up inside itself (looping parent references of reused or
        // damaged records): such an entry goes straight to "Lost".
        bool loops = false;
        for (ScanEntry* s = entry; s && !loops; s = s->nextSibling)
            loops = (s->flags & kNodeFolder) && IsAncestorOrSelf(s, folder);
        if (loops) {
            if (!m_lost) return true;
            folder = m_lost;
            for (ScanEntry* s = entry; s; s = s->nextSibling) s->parentRecordId = m_lost->recordId;
        }
    } else {
        ScanEntry* holder = NewScanEntry(RecordName(entry->parentRecordId), kNodeFolder, entry->parentRecordId,
                                         kUnknownParent);
        if (!holder || !Add(holder)) {
            delete holder;
            FreeScanEntries(entry);
            return false;
        }
        folder = holder;
    }
    ScanEntry* tail = entry;
    for (ScanEntry* s = entry;; s = s->nextSibling) {
        s->parent = folder;
        if (!s->nextSibling) {
            tail = s;
            break;
        }
    }
    tail->nextSibling = folder->firstChild;
    folder->firstChild = entry;
    return true;
}

void CDirectoryIndex::PlaceOrphans() {
    if (!m_lost) {
        Clear();
        return;
    }
    std::sort(m_order.begin(), m_order.end(),
              [](const ScanEntry* a, const ScanEntry* b) { return a->recordId < b->recordId; });
    uint32_t orphanNo = 0;
    for (ScanEntry* e : m_order) {
        // Only entries that hang nowhere move: an indexed folder that already has a parent must
        // never be linked twice, whatever its parentRecordId says.
        if (e != m_root && e != m_lost && !e->parent) {
            e->reserved = orphanNo++;
            e->parent = m_lost;
            e->nextSibling = m_lost->firstChild;
            m_lost->firstChild = e;
            e->parentRecordId = m_lost->recordId;
        }
    }
    // "Lost" was the root's first child and every later one went in front of it; it is shown
    // first again.
    if (m_root && m_root->firstChild != m_lost) {
        ScanEntry* prev = m_root->firstChild;
        while (prev && prev->nextSibling != m_lost) prev = prev->nextSibling;
        if (prev) {
            prev->nextSibling = m_lost->nextSibling;
            m_lost->nextSibling = m_root->firstChild;
            m_root->firstChild = m_lost;
        }
    }
    Clear();
}

void CDirectoryIndex::Clear() {
    m_folders.clear();
    m_order.clear();
}

} // namespace kestrin
