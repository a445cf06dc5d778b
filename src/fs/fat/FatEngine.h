#pragma once
// FAT12, FAT16 and FAT32 engine: the folder walk that fills the found-item tree, and the content
// read-back the saver and `cat` use.
#include <cstdint>
#include <functional>
#include <span>

#include "fs/Content.h"
#include "fs/fat/CFatWalker.h"
#include "job/Outcome.h"

namespace kestrin {

class CPhysicalDisk;
class CNode;
class CFatVolume;
class CClusterMap;
struct ScanContext;

// Scans the media's selected FAT12/16/32 volume into ctx.top as the volume root "." (root
// recordId 1 on FAT12/16, 2 on FAT32) with "Lost" first. `mode` is the file-system-scan argument
// of the driver: it passes 1, "with deleted and lost items", which is the full walk (every entry
// in use or deleted, with the "." and ".." checks); 2 means the same; 0 is the bare walk
// (kFatWalkBare). The deleted-only merge walk is reached through FatWalkVolume.
Outcome FatScanVolume(CPhysicalDisk& media, int mode, ScanContext& ctx);
// The same with an explicit walk mode.
Outcome FatWalkVolume(CPhysicalDisk& media, FatWalkMode mode, ScanContext& ctx);

// Rebuilds folders from bare clusters found by the formatted-volume search: every cluster that
// starts with "." and ".." becomes a folder named "#<cluster>" read in the bare walk with
// everything below it. Folders found inside another rebuilt folder keep their place there; the
// others hang under the volume root when their ".." names the root, else under "Lost" in a
// placeholder folder named after the missing parent cluster. The result goes to ctx.top.
Outcome FatRebuildFolders(CPhysicalDisk& media, std::span<const uint32_t> folderClusters, ScanContext& ctx);
// The search for the FAT12/16/32 file system that was on the media's volume before it was
// formatted again: one pass over the volume's sectors finds the old folders' first clusters (by
// their "." and "..") and the sectors that hold folder entries. The old data start and cluster
// size, which a format with another cluster size changes, are solved from where the "." entries
// lie and the clusters they name; then the folders are pieced together and hung as
// FatRebuildFolders does. When the old layout differs from the current one, the media's partition
// record is left describing the old layout (the volume root's handle then reads its items back
// from there).
Outcome FatSearchPreviousFolders(CPhysicalDisk& media, ScanContext& ctx);

// Writes `size` bytes of a file found on the media's FAT12/16/32 volume: through its FAT chain
// when in use; when deleted (its chain zeroed), from the first cluster onward over the clusters
// that are free now.
ContentResult FatWriteContent(CPhysicalDisk& media, const CNode& node, const ContentSink& sink);
// The same on an opened volume (keeps the FAT cache across many files).
ContentResult FatWriteContent(CFatVolume& volume, const CNode& node, const ContentSink& sink);

// Judges every deleted file below `volumeRoot` (found on the media's selected FAT12/16/32 volume)
// against the FAT, read once into a cluster map (an entry that is not 0 is in use). A deleted
// file is taken to have had as many clusters as its size needs, contiguous from its first one.
// False when the FAT cannot be had or `stop` said so.
bool FatJudgeConditions(CPhysicalDisk& media, CNode& volumeRoot, const std::function<bool()>& stop);

// What FAT and exFAT share: judges the deleted files below `volumeRoot` whose first cluster
// `validFirst` accepts, each as contiguous clusters from that one; cluster c is bit
// c + `clusterBase` of `map`.
void JudgeClusterFiles(CNode& volumeRoot, const CClusterMap& map, uint32_t clusterBytes, int64_t clusterBase,
                       const std::function<bool(uint32_t)>& validFirst, const std::function<bool()>& stop,
                       bool& stopped);

} // namespace kestrin
