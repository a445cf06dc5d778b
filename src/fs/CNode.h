#pragma once
// The found-item tree: every result of a scan (file-system items and carved files) is a node.
// Children form a singly linked list (firstChild, nextSibling); every node owns its children.
#include <cstdint>
#include <memory>
#include <new>
#include <string>

#include "fs/NodeName.h"

namespace kestrin {

struct VolumeHandle;

enum NodeFlags : uint16_t { kNodeInUse = 1, kNodeFolder = 2, kNodeFatChain = 4 };

class CNode;
// What the file-system engines build while walking a volume: found items are nodes from the
// start, and the finished volume is linked into the tree as it is (see ConvertScanEntries).
using ScanEntry = CNode;

// One found item. Nodes and their names live in node memory (fs/NodeMemory.h); `new CNode` and
// `delete` go there. Deleting a node deletes everything below it.
class CNode {
public:
    CNode();
    ~CNode();
    CNode(const CNode&) = delete;
    CNode& operator=(const CNode&) = delete;

    static void* operator new(size_t bytes);
    static void* operator new(size_t bytes, const std::nothrow_t&) noexcept;
    static void operator delete(void* p, size_t bytes) noexcept;
    static void operator delete(void* p, const std::nothrow_t&) noexcept;

    uint64_t size = 0;
    uint64_t location = 0;
    CNode* parent = nullptr;
    CNode* nextSibling = nullptr;
    CNode* firstChild = nullptr;
    NodeName name;
    // Set on volume roots only: the volume the items below were found on.
    std::unique_ptr<VolumeHandle> volume;
    uint32_t recordId = 0;
    uint32_t parentRecordId = 0;
    uint32_t startOffset = 0;
    // The engines' own use while walking (sequence numbers, orphan order); means nothing after.
    uint32_t reserved = 0;
    uint16_t createdDate = 0;
    uint16_t modifiedDate = 0;
    uint16_t flags = 0;
    uint8_t checked = 0;
    uint8_t carved = 0;
    uint8_t nameLength = 0;
    uint8_t inDeletedView = 0;
    uint8_t condition = 0; // a Condition (fs/Condition.h), set on deleted files

    bool IsFolder() const { return flags & kNodeFolder; }
    bool IsDeleted() const { return !(flags & kNodeInUse); }
    bool HasChildren() const { return firstChild != nullptr; }
    // Appends `child` at the end of the child list (O(children)); sets its parent.
    void AppendChild(CNode* child);
    // Prepends `child` (what the add operations do); sets its parent.
    void PrependChild(CNode* child);
    // Unlinks `child` from this node's children without destroying it.
    bool Unlink(CNode* child);
};

// Grouping folders made by the signature scan carry this fixed name length whatever their name.
constexpr uint8_t kGroupingNameLength = 23;

// New folder under `parent` (prepended, flags 3, nameLength 23).
CNode* AddFolder(CNode* parent, std::u16string name);
// New carved file under `parent` (prepended, checked, carved).
CNode* AddCarvedFile(CNode* parent, std::u16string_view name, uint64_t startSector, uint64_t sizeBytes,
                     uint32_t startOffset);
// First child whose name equals `name` exactly (case-sensitive); null if none.
CNode* FindChild(const CNode* folder, std::u16string_view name);
// Grouping folders count their files in `size`.
inline uint64_t IncrementCount(CNode* folder) { return ++folder->size; }
inline uint64_t GetCount(const CNode* folder) { return folder->size; }

// Moves a sibling list of scan entries (with everything below) to the end of `target`'s
// children, in order, and sets every parent link below. `*source` is cleared.
bool ConvertScanEntries(ScanEntry** source, CNode* target);
// Deletes `first`, the siblings chained behind it and everything below them.
void FreeScanEntries(ScanEntry* first);
// Appends copies of the child list `first` (recursively) under `target`.
bool DeepCopy(const CNode* first, CNode* target);

// Marks every deleted node and its ancestors with inDeletedView = 1 (top marked 1).
void MarkDeletedView(CNode* top);
// Clears the marks: the top's mark 0 means no filtering.
void ClearDeletedView(CNode* top);

struct SaveCount {
    uint64_t folders = 0, files = 0, bytes = 0;
};
// Ticked folders, files and bytes below `top`; with deletedOnly only nodes marked in the view.
SaveCount CountForSave(const CNode* top, bool deletedOnly);

// "%s KB" with thousands separators of size / 1024; "0 KB" for 0.
std::string FormatSizeKB(uint64_t sizeBytes);

// Visits every node below `top` depth first (children after the node); no recursion.
template <class F>
void ForEachNode(CNode* top, F&& f) {
    for (CNode* n = top ? top->firstChild : nullptr; n;) {
        f(n);
        if (n->firstChild) {
            n = n->firstChild;
            continue;
        }
        while (n && n != top && !n->nextSibling) n = n->parent;
        if (!n || n == top) break;
        n = n->nextSibling;
    }
}

} // namespace kestrin
