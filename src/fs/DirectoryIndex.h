#pragma once
// The folders of one volume scan, indexed by record number (NTFS) or first cluster (FAT, exFAT),
// so that entries can be put under their folder in whatever order the walk meets them. Parents
// not seen yet get placeholder folders "#<number>"; a real folder that arrives later takes over
// its placeholder, so the children already hung there stay in place. What still has no parent
// at the end goes to "Lost".
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "fs/CNode.h"

namespace kestrin {

constexpr uint32_t kUnknownParent = 0xFFFFFFFF;

// The folders of the scan keyed by recordId. It does not own the entries: they belong to the
// volume's scan-entry tree.
class CDirectoryIndex {
public:
    // Indexes the volume root and its "Lost" folder (the root's first child).
    explicit CDirectoryIndex(ScanEntry* volumeRoot);
    CDirectoryIndex(const CDirectoryIndex&) = delete;
    CDirectoryIndex& operator=(const CDirectoryIndex&) = delete;

    ScanEntry* Root() const { return m_root; }
    ScanEntry* Lost() const { return m_lost; }
    ScanEntry* Find(uint32_t recordId) const;
    // The entry already indexed under dir->recordId, or `dir` itself after indexing it.
    ScanEntry* FindOrAdd(ScanEntry* dir);
    // Puts `entry` (and the siblings chained behind it) first under the folder whose recordId is
    // entry->parentRecordId, creating a placeholder folder when there is none. A folder that
    // would become its own ancestor is left unplaced (parent unknown) and ends up in "Lost".
    // Returns false only when a placeholder could not be allocated (the chain is then freed).
    bool InsertUnderParent(ScanEntry* entry);
    // Moves every indexed folder that still has no parent into "Lost", in ascending recordId
    // order (the last one moved comes first), numbering them in `reserved` from 0; moves "Lost"
    // back to the front of the root's children; then empties the index.
    void PlaceOrphans();
    size_t Size() const { return m_folders.size(); }

private:
    // Indexes `e` under its recordId (not yet indexed); false when memory ran out (then nothing is).
    bool Add(ScanEntry* e);
    bool IsAncestorOrSelf(const ScanEntry* candidate, const ScanEntry* of) const;
    void Clear();

    ScanEntry* m_root = nullptr;
    ScanEntry* m_lost = nullptr;
    std::unordered_map<uint32_t, ScanEntry*> m_folders;
    // The same entries in the order they came; sorted by recordId when the orphans are placed
    // (kept from the start so that placing them needs no memory).
    std::vector<ScanEntry*> m_order;
};

} // namespace kestrin
