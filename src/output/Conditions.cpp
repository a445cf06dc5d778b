#include "output/Conditions.h"

#include <memory>

#include "fs/CNode.h"
#include "fs/VolumeHandle.h"
#include "fs/exfat/ExFatEngine.h"
#include "fs/fat/FatEngine.h"
#include "fs/ntfs/NtfsEngine.h"
#include "storage/CPhysicalDisk.h"
#include "output/ContentCopy.h"

namespace kestrin {

void JudgeConditions(CPhysicalDisk& media, CNode* top, const std::function<bool()>& stop) {
    if (!top || !media.Handle()) return;
    for (CNode* root = top->firstChild; root; root = root->nextSibling) {
        VolumeHandle* volume = root->volume.get();
        if (!volume || volume->provisional || volume->conditionsJudged) continue;
        CPhysicalDisk view;
        view.Attach(std::make_unique<BorrowedSource>(*media.Handle()));
        SelectVolume(view, *volume);
        bool done = false;
        switch (volume->fsKind) {
        case FsKind::Ntfs: done = NtfsJudgeConditions(view, *root, stop); break;
        case FsKind::Fat12:
        case FsKind::Fat16:
        case FsKind::Fat32: done = FatJudgeConditions(view, *root, stop); break;
        case FsKind::ExFat: done = ExFatJudgeConditions(view, *root, stop); break;
        default: done = true; break; // no allocation map: the files stay unknown
        }
        // A volume without a readable map is not asked again; a stopped one is.
        volume->conditionsJudged = done || !(stop && stop());
    }
}

} // namespace kestrin
