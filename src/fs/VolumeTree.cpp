#include "fs/VolumeTree.h"

#include <new>

namespace kestrin {

CNode* MakeTopNode() {
    auto* top = new CNode;
    top->name = u"_R";
    top->nameLength = 2;
    top->flags = kNodeInUse | kNodeFolder;
    return top;
}

ScanEntry* NewScanEntry(std::u16string name, uint8_t flags, uint32_t recordId, uint32_t parentRecordId) {
    auto* e = new (std::nothrow) ScanEntry;
    if (!e) return nullptr;
    if (name.size() > 255) name.resize(255);
    e->nameLength = uint8_t(name.size());
    e->name = std::move(name);
    e->flags = flags;
    e->recordId = recordId;
    e->parentRecordId = parentRecordId;
    return e;
}

std::u16string RecordName(uint32_t recordId) {
    std::string s = "#" + std::to_string(recordId);
    return std::u16string(s.begin(), s.end());
}

ScanEntry* MakeVolumeRoot(uint32_t rootId) {
    ScanEntry* root = NewScanEntry(u".", kNodeInUse | kNodeFolder, rootId, rootId);
    if (!root) return nullptr;
    ScanEntry* lost = NewScanEntry(u"Lost", kNodeFolder, 0, rootId);
    if (lost) {
        lost->parent = root;
        root->firstChild = lost;
    }
    return root;
}

ScanEntry* LostFolderOf(ScanEntry* volumeRoot) {
    for (ScanEntry* c = volumeRoot ? volumeRoot->firstChild : nullptr; c; c = c->nextSibling)
        if (c->name == u"Lost" && c->flags == kNodeFolder) return c;
    return nullptr;
}

CNode* AttachVolume(CNode* top, ScanEntry* volumeRoot) {
    if (!volumeRoot) return nullptr;
    volumeRoot->nextSibling = nullptr;
    // "Lost" comes first under the volume root, whatever order the walk left the children in
    // (walks that prepend entries push it to the end).
    if (ScanEntry* lost = LostFolderOf(volumeRoot); lost && volumeRoot->firstChild != lost) {
        for (ScanEntry** link = &volumeRoot->firstChild; *link; link = &(*link)->nextSibling) {
            if (*link == lost) {
                *link = lost->nextSibling;
                break;
            }
        }
        lost->nextSibling = volumeRoot->firstChild;
        volumeRoot->firstChild = lost;
    }
    CNode* before = top->firstChild;
    while (before && before->nextSibling) before = before->nextSibling;
    ConvertScanEntries(&volumeRoot, top);
    return before ? before->nextSibling : top->firstChild;
}

CNode* FindVolumeRoot(const CNode* top) { return top ? FindChild(top, u".") : nullptr; }

} // namespace kestrin
