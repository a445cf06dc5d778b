#pragma once
// Copying a source into an image file: large reads, a block that fails is read again sector by
// sector, sectors that still fail become zeros and are listed in a map file beside the image.
// One bad sector never ends the copy.
#include <cstdint>
#include <string>

#include "output/UserMessages.h"
#include "job/ScanContext.h"
#include "storage/CPhysicalDisk.h"

namespace kestrin {

inline constexpr uint32_t kImageSectorsPerRead = 128;

struct ImageResult {
    bool refused = false;   // the image would have been written onto the source
    bool ok = false;        // every sector of the range was copied or zero-filled
    bool cancelled = false;
    uint32_t error = 0;     // system code when the image file could not be made or written
    uint64_t sectors = 0;   // sectors handled
    uint64_t badSectors = 0;
    std::string mapPath;    // "<image>.map" when there were bad sectors
};

// True when writing `outPath` would overwrite the source: the same file, the source device, a
// partition of the source disk, or a file on a file system that lives on the source device.
bool ImageTargetIsSource(const std::string& outPath, const CPhysicalDisk& source);

// Copies the source's range (first sector, sector count) into `outPath`. Progress in sectors.
// A regular file appears under its name only when the copy is complete; an existing file (image
// or map) is replaced only with `replace`. Sectors past the end of the source count as bad.
ImageResult CreateDiskImage(CPhysicalDisk& source, const std::string& outPath, ScanContext& ctx,
                            IUserMessages& messages, bool replace = false);
// The driver's view of an image copy: stopped, sectors that could not be copied, or ok.
Outcome OutcomeOf(const ImageResult& r);

} // namespace kestrin
