#include "fs/CNode.h"

#include <new>
#include <vector>

#include "fs/VolumeHandle.h"
#include "util/Text.h"

namespace kestrin {

CNode::CNode() = default;

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
    // Explicit stack of (entry list, target node, last converted) keeps deep trees off the call stack.
    struct Frame {
        ScanEntry* next;
        CNode* target;
        CNode* last;
    };
    std::vector<Frame> stack;
    CNode* last = target->firstChild;
    while (last && last->nextSibling) last = last->nextSibling;
    stack.push_back({*source, target, last});
    *source = nullptr;
    bool failed = false;
    while (!stack.empty()) {
        Frame& f = stack.back();
        ScanEntry* e = f.next;
        if (!e) {
            stack.pop_back();
            continue;
        }
        f.next = e->nextSibling;
        if (failed) {
            e->nextSibling = nullptr;
            FreeScanEntries(e);
            continue;
        }
        auto* n = new (std::nothrow) CNode;
        if (!n) {
            failed = true;
            e->nextSibling = nullptr;
            FreeScanEntries(e);
            continue;
        }
        n->checked = e->checked;
        n->nameLength = e->nameLength;
        n->flags = e->flags;
        n->parentRecordId = e->parentRecordId;
        n->recordId = e->recordId;
        n->name = std::move(e->name);
        n->location = e->location;
        n->size = e->size;
        n->modifiedDate = e->modifiedDate;
        n->createdDate = e->createdDate;
        n->parent = f.target;
        if (f.last)
            f.last->nextSibling = n;
        else
            f.target->firstChild = n;
        f.last = n;
        ScanEntry* children = e->firstChild;
        delete e;
        if (children) stack.push_back({children, n, nullptr});
    }
    return true;
}

void FreeScanEntries(ScanEntry* first) {
    std::vector<ScanEntry*> pending;
    if (first) pending.push_back(first);
    while (!pending.empty()) {
        ScanEntry* e = pending.back();
        pending.pop_back();
        if (e->nextSibling) pending.push_back(e->nextSibling);
        if (e->firstChild) pending.push_back(e->firstChild);
        delete e;
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
