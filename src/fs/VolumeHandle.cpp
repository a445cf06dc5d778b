#include "fs/VolumeHandle.h"

#include "fs/CNode.h"

namespace kestrin {

VolumeHandle HandleOf(const CPhysicalDisk& media) {
    VolumeHandle h;
    h.fsKind = media.GetFsKind();
    h.sourceKind = media.GetSourceKind();
    h.partitionFlag = media.GetPartitionFlag();
    h.firstSector = media.GetFirstSector();
    h.sectorCount = media.GetSectorCount();
    h.sectorSize = media.GetSectorSize();
    h.params = media.GetPartitionParams();
    return h;
}

void SelectVolume(CPhysicalDisk& view, const VolumeHandle& volume) {
    view.SetFsKind(volume.fsKind);
    view.SetSourceKind(volume.sourceKind);
    view.SetPartitionFlag(volume.partitionFlag);
    view.SetFirstSector(volume.firstSector);
    view.SetSectorCount(volume.sectorCount);
    view.SetSectorSize(volume.sectorSize);
    view.SetPartitionParams(volume.params);
}

const VolumeHandle* VolumeOf(const CNode& node) {
    for (const CNode* n = &node; n; n = n->parent)
        if (n->volume && !n->volume->provisional) return n->volume.get();
    return nullptr;
}

const VolumeHandle* SingleVolumeOf(const CNode* top) {
    const VolumeHandle* found = nullptr;
    for (const CNode* n = top ? top->firstChild : nullptr; n; n = n->nextSibling) {
        if (!n->volume || n->volume->provisional) continue;
        if (found) return nullptr;
        found = n->volume.get();
    }
    return found;
}

void KeepTimes(CNode& volumeRoot, const CPhysicalDisk& media, KeptTimes&& times) {
    times.Seal();
    if (!volumeRoot.volume) {
        volumeRoot.volume = std::make_unique<VolumeHandle>(HandleOf(media));
        volumeRoot.volume->provisional = true;
    }
    volumeRoot.volume->times = std::move(times);
}

void StampVolumes(CNode* top, const CPhysicalDisk& media) {
    if (!top) return;
    for (CNode* n = top->firstChild; n; n = n->nextSibling)
        if (n->IsFolder() && n->name == u".") {
            if (!n->volume) {
                n->volume = std::make_unique<VolumeHandle>(HandleOf(media));
            } else if (n->volume->provisional) {
                // The geometry only: what was learnt about the items below stays.
                VolumeHandle h = HandleOf(media);
                VolumeHandle& v = *n->volume;
                v.fsKind = h.fsKind;
                v.sourceKind = h.sourceKind;
                v.partitionFlag = h.partitionFlag;
                v.firstSector = h.firstSector;
                v.sectorCount = h.sectorCount;
                v.sectorSize = h.sectorSize;
                v.params = h.params;
                v.provisional = false;
            }
        }
}

} // namespace kestrin
