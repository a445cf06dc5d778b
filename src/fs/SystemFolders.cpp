#include "fs/SystemFolders.h"

namespace kestrin {

bool IsVolumeRootNode(const CNode* n) {
    return n && n->IsFolder() && n->name == u"." && n->parent && !n->parent->parent;
}

bool IsLostFolder(const CNode* n) {
    return n && n->flags == kNodeFolder && n->recordId == 0 && n->name == u"Lost" && IsVolumeRootNode(n->parent);
}

bool IsExtendFolder(const CNode* n) {
    return n && n->IsFolder() && n->name == u"$Extend" && IsVolumeRootNode(n->parent);
}

bool IsSystemFolder(const CNode* n) {
    if (!n || !n->IsFolder()) return false;
    if (IsLostFolder(n)) return true;
    for (const CNode* p = n; p; p = p->parent)
        if (IsExtendFolder(p)) return true;
    return false;
}

} // namespace kestrin
