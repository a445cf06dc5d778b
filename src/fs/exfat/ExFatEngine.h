#pragma once
// exFAT engine: the folder walk that fills the found-item tree, and the content read-back the
// saver and `cat` use.
#include <cstdint>
#include <functional>

#include "fs/Content.h"
#include "job/Outcome.h"

namespace kestrin {

class CPhysicalDisk;
class CNode;
class CFatVolume;
struct ScanContext;

// Scans the media's selected exFAT volume into ctx.top as the volume root "." (recordId = the
// root-directory cluster) with "Lost" first. exFAT has one walk; `mode` (the driver's
// file-system-scan argument) does not change it. A stop, or a source that goes away, ends the walk
// before the next item; what was found so far stays listed.
Outcome ExFatScanVolume(CPhysicalDisk& media, int mode, ScanContext& ctx);

// Writes `size` bytes of a file found on the media's exFAT volume: in use, through its FAT
// chain (flags bit 4) or as one contiguous run; deleted, from the first cluster onward over the
// clusters the allocation bitmap shows free now.
ContentResult ExFatWriteContent(CPhysicalDisk& media, const CNode& node, const ContentSink& sink);
// The same on an opened exFAT volume.
ContentResult ExFatWriteContent(CFatVolume& volume, const CNode& node, const ContentSink& sink);

// Judges every deleted file below `volumeRoot` (found on the media's selected exFAT volume)
// against the allocation bitmap, read once: its clusters, contiguous from the first one as many
// as its size needs, in use now or not. False when the bitmap cannot be had or `stop` said so.
bool ExFatJudgeConditions(CPhysicalDisk& media, CNode& volumeRoot, const std::function<bool()>& stop);

} // namespace kestrin
