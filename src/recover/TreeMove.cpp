#include "recover/TreeMove.h"

namespace kestrin {

bool TreeHasItems(CNode* top) {
    bool found = false;
    ForEachNode(top, [&](CNode* n) {
        bool emptyShell = n->IsFolder() && !n->firstChild && (n->name == u"Lost" || n->name == u".");
        bool volumeRoot = n->parent == top && n->name == u".";
        if (!emptyShell && !volumeRoot) found = true;
    });
    return found;
}

void MoveVolumeRoots(CNode* from, CNode* to) {
    if (!from || !to) return;
    while (CNode* child = from->firstChild) {
        from->Unlink(child);
        to->AppendChild(child);
    }
}

} // namespace kestrin
