#include "output/NodeTimes.h"

#include <memory>

#include "fs/CNode.h"
#include "fs/VolumeHandle.h"
#include "fs/ntfs/NtfsTimes.h"
#include "output/ContentCopy.h"
#include "storage/CPhysicalDisk.h"

namespace kestrin {

bool ReadNodeTimes(CPhysicalDisk& media, const CNode& node, ItemTimes& out) {
    out = {};
    if (node.carved) return false;
    for (const CNode* n = &node; n; n = n->parent) {
        if (!n->volume) continue;
        const auto& kept = n->volume->itemTimes;
        if (auto it = kept.find(&node); it != kept.end()) {
            out = it->second;
            return out.Any();
        }
    }
    const VolumeHandle* volume = VolumeOf(node);
    if ((volume ? volume->fsKind : media.GetFsKind()) != FsKind::Ntfs) return false;
    if (!volume || !media.Handle()) return NtfsReadTimes(media, node, out);
    CPhysicalDisk view;
    view.Attach(std::make_unique<BorrowedSource>(*media.Handle()));
    SelectVolume(view, *volume);
    return NtfsReadTimes(view, node, out);
}

} // namespace kestrin
