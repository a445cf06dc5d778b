#pragma once
// The volume a tree's items were found on: which engine reads them back and where. Each volume
// root "." of a found tree carries one, so saving, `cat`, the preview and sessions read a node's
// content through its own volume, whatever the media has selected since.
#include <cstdint>
#include <unordered_map>

#include "fs/ItemTimes.h"
#include "storage/CPhysicalDisk.h"
#include "storage/PartitionRecord.h"

namespace kestrin {

class CNode;

struct VolumeHandle {
    FsKind fsKind = FsKind::None;
    SourceKind sourceKind = SourceKind::None;
    PartitionFlag partitionFlag = PartitionFlag::None;
    uint64_t firstSector = 0;
    uint64_t sectorCount = 0;
    uint32_t sectorSize = 0;
    PartitionRecord params; // the geometry the engine read the volume with
    // Set once the deleted files below were judged against the volume's allocation map.
    bool conditionsJudged = false;
    // Bytes of deleted files below that the allocation map shows in use by other files (only
    // files with some).
    std::unordered_map<const CNode*, uint64_t> overwrittenBytes;
    // The full times of the items below, as their walk read them: always for FAT and exFAT, for
    // NTFS when the scan was asked to keep them.
    KeptTimes times;
    // Made by a folder walk to carry the times, from the media as it was then: the driver's stamp
    // replaces the geometry (an engine may still narrow the media after its walk).
    bool provisional = false;
};

// The media's current selection as a handle.
VolumeHandle HandleOf(const CPhysicalDisk& media);
// Narrows `view` (a media reading the same source) to the handle's volume.
void SelectVolume(CPhysicalDisk& view, const VolumeHandle& volume);
// The handle of the volume root above `node`, or null (carved items, trees without one).
const VolumeHandle* VolumeOf(const CNode& node);
// The handle of the one volume root directly below `top`; null when there is none or several.
const VolumeHandle* SingleVolumeOf(const CNode* top);
// Hands a walk's times to its volume root: to its handle, or to a provisional one made from the
// media as it is now (the driver's stamp replaces its geometry).
void KeepTimes(CNode& volumeRoot, const CPhysicalDisk& media, KeptTimes&& times);
// Gives every volume root directly below `top` that has no handle yet (or a provisional one) the
// media's selection: the driver calls it after each stage that may have added a volume.
void StampVolumes(CNode* top, const CPhysicalDisk& media);

} // namespace kestrin
