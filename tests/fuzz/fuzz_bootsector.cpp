// The five boot-sector tests, the fills and the broader volume recognition over one sector.
#include <cstdint>
#include <span>

#include "storage/BootSector.h"
#include "storage/CPhysicalDisk.h"
#include "storage/SourceLayout.h"

using namespace kestrin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static CPhysicalDisk media;
    media.SetSectorSize(size > 0 && (data[0] & 1) ? 4096 : 512);
    std::span<const uint8_t> sector(data, size);
    PartitionRecord r;
    r.length = size;
    if (IsNtfsBootSector(media, sector)) FillNtfsRecord(media, sector, r);
    if (IsExFatBootSector(media, sector)) FillExFatRecord(media, sector, r);
    if (IsFat32BootSector(media, sector)) FillFat32Record(sector, r);
    if (IsFat16BootSector(media, sector)) FillFat16Record(sector, r);
    if (IsFat12BootSector(media, sector)) FillFat12Record(sector, r);
    // The fills must also survive sectors no test accepted.
    FillNtfsRecord(media, sector, r);
    FillExFatRecord(media, sector, r);
    FillFat32Record(sector, r);
    FillFat16Record(sector, r);
    FillFat12Record(sector, r);
    auto volume = RecogniseVolume(media, sector, size);
    return volume && volume->fsKind > FsKind::Fat12 ? 1 : 0;
}
