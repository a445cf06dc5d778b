#pragma once
// The folders of one volume scan, indexed by record number (NTFS) or first cluster (FAT, exFAT),
// so that entries can be put under their folder in whatever order the walk meets them. Parents
// not seen yet get placeholder folders "#<number>"; a real folder that arrives later takes over
// its placeholder, so the children already hung there stay in place. What still has no parent
// at the end goes to "Lost".
#include <cstdint>
#include <vector>

#include "fs/CNode.h"

namespace kestrin {

constexpr uint32_t kUnknownParent = 0xFFFFFFFF;

// A height-balanced search tree over folder scan entries keyed by recordId. It does not own the
// entries: they belong to the volume's scan-entry tree.
class CDirectoryIndex {
public:
    // Indexes the volume root and its "Lost" folder (the root's first child).
    explicit CDirectoryIndex(ScanEntry* volumeRoot);
    ~CDirectoryIndex();
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
    size_t Size() const { return m_count; }

private:
    struct Node {
        int8_t balance = 0;
        ScanEntry* entry = nullptr;
        Node* parent = nullptr;
        Node* left = nullptr;  // keys not greater
        Node* right = nullptr; // keys greater
    };
    // Search for `key`; on a miss `*last` is the last node visited.
    Node* Search(uint32_t key, Node** last) const;
    Node* NewNode(ScanEntry* e);
    void Link(Node* n, Node* last);
    void Rebalance(Node* n);
    void RotateLeft(Node* x);
    void RotateRight(Node* x);
    bool IsAncestorOrSelf(const ScanEntry* candidate, const ScanEntry* of) const;
    void Clear();

    ScanEntry* m_root = nullptr;
    ScanEntry* m_lost = nullptr;
    Node* m_top = nullptr;
    size_t m_count = 0;
    // Nodes are carved out of blocks: a volume can hold millions of folders.
    std::vector<Node*> m_blocks;
    size_t m_blockUsed = 0;
};

} // namespace kestrin
