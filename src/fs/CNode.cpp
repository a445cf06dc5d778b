#include "fs/CNode.h"

#include <new>
#include <vector>

#include "fs/NodeMemory.h"
#include "fs/VolumeHandle.h"
#include "util/Text.h"

namespace kestrin {

CNode::CNode() = default;

void* CNode::operator new(size_t bytes) {
    void* p = node_memory::Allocate(bytes, alignof(CNode));
    if (!p) throw std::bad_alloc();
    return p;
}

void* CNode::operator new(size_t bytes, const std::nothrow_t&) noexcept {
    return node_memory::Allocate(bytes, alignof(CNode));
}

void CNode::operator delete(void* p, size_t bytes) noexcept { node_memory::Release(p, bytes); }

void CNode::operator delete(void* p, const std::nothrow_t&) noexcept { node_memory::Release(p, sizeof(CNode)); }

CNode::~CNode() {
    // Iterative teardown: deep trees from hostile disks must not exhaust the stack.
    std::vector<CNode*> pending;
    for (CNode* c = firstChild; c; c = c->nextSibling) pending.push_back(c);
    firstChild = nullptr;
    while (!pending.empty()) {
        CNode* n = pending.back();
        pending.pop_back();
        for (CNode* c = n->firstChild; c; c = c->nextSibling) pending.push_back(c);
        n->firstChild = nullptr;
        n->nextSibling = nullptr;
        delete n;
    }
}

void CNode::AppendChild(CNode* child) {
    child->parent = this;
    child->nextSibling = nullptr;
    if (!firstChild) {
        firstChild = child;
        return;
    }
    CNode* last = firstChild;
    while (last->nextSibling) last = last->nextSibling;
    last->nextSibling = child;
}

void CNode::PrependChild(CNode* child) {
    child->parent = this;
    child->nextSibling = firstChild;
    firstChild = child;
}

bool CNode::Unlink(CNode* child) {
    for (CNode** link = &firstChild; *link; link = &(*link)->nextSibling) {
        if (*link == child) {
            *link = child->nextSibling;
            child->nextSibling = nullptr;
            child->parent = nullptr;
            return true;
        }
    }
    return false;
}

CNode* AddFolder(CNode* parent, std::u16string name) {
    auto* n = new (std::nothrow) CNode;
    if (!n) return nullptr;
    n->name = std::move(name);
    n->flags = kNodeInUse | kNodeFolder;
    n->nameLength = kGroupingNameLength;
    parent->PrependChild(n);
    return n;
}

CNode* AddCarvedFile(CNode* parent, std::u16string_view name, uint64_t startSector, uint64_t sizeBytes,
                     uint32_t startOffset) {
    auto* n = new (std::nothrow) CNode;
    if (!n) return nullptr;
    n->name.assign(name);
    n->location = startSector;
    n->size = sizeBytes;
    n->checked = 1;
    n->startOffset = startOffset;
    n->flags = 0;
    n->nameLength = uint8_t(name.size() > 255 ? 255 : name.size());
    n->carved = 1;
    parent->PrependChild(n);
    return n;
}

CNode* FindChild(const CNode* folder, std::u16string_view name) {
    for (CNode* c = folder->firstChild; c; c = c->nextSibling)
        if (c->name == name) return c;
    return nullptr;
}

bool ConvertScanEntries(ScanEntry** source, CNode* target) {
    CNode* first = *source;
    *source = nullptr;
    if (!first) return true;
    CNode** link = &target->firstChild;
    while (*link) link = &(*link)->nextSibling;
    *link = first;
    for (CNode* s = first; s; s = s->nextSibling) s->parent = target;
    // The walks do not always keep parent links up to date while they move entries around; set
    // them all, depth first without recursion (the links set on the way down lead back up).
    for (CNode* n = first; n;) {
        if (n->firstChild) {
            for (CNode* c = n->firstChild; c; c = c->nextSibling) c->parent = n;
            n = n->firstChild;
            continue;
        }
        while (n != target && !n->nextSibling) n = n->parent;
        if (n == target) break;
        n = n->nextSibling;
    }
    return true;
}

void FreeScanEntries(ScanEntry* first) {
    while (first) {
        CNode* next = first->nextSibling;
        first->nextSibling = nullptr;
        delete first;
        first = next;
    }
}

bool DeepCopy(const CNode* first, CNode* target) {
    struct Frame {
        const CNode* next;
        CNode* target;
    };
    std::vector<Frame> stack{{first, target}};
    while (!stack.empty()) {
        Frame& f = stack.back();
        const CNode* s = f.next;
        if (!s) {
            stack.pop_back();
            continue;
        }
        f.next = s->nextSibling;
        auto* n = new (std::nothrow) CNode;
        if (!n) return true;
        n->name = s->name;
        n->nameLength = s->nameLength;
        n->checked = s->checked;
        n->flags = s->flags;
        n->parentRecordId = s->parentRecordId;
        n->recordId = s->recordId;
        n->location = s->location;
        n->size = s->size;
        n->modifiedDate = s->modifiedDate;
        n->createdDate = s->createdDate;
        n->carved = s->carved;
        CNode* t = f.target;
        t->AppendChild(n);
        if (s->firstChild) stack.push_back({s->firstChild, n});
    }
    return true;
}

void ClearDeletedView(CNode* top) {
    top->inDeletedView = 0;
    ForEachNode(top, [](CNode* n) { n->inDeletedView = 0; });
}

void MarkDeletedView(CNode* top) {
    top->inDeletedView = 1;
    ForEachNode(top, [](CNode* n) { n->inDeletedView = 0; });
    ForEachNode(top, [](CNode* n) {
        if (n->flags & kNodeInUse) return;
        for (CNode* a = n; a && !a->inDeletedView; a = a->parent) a->inDeletedView = 1;
    });
}

SaveCount CountForSave(const CNode* top, bool deletedOnly) {
    SaveCount c;
    ForEachNode(const_cast<CNode*>(top), [&](CNode* n) {
        if (!n->checked || (deletedOnly && !n->inDeletedView)) return;
        if (n->IsFolder()) {
            ++c.folders;
        } else {
            ++c.files;
            c.bytes += n->size;
        }
    });
    return c;
}

std::string FormatSizeKB(uint64_t sizeBytes) {
    if (sizeBytes == 0) return "0 KB";
    return WithThousands(sizeBytes / 1024) + " KB";
}

} // namespace kestrin
