// The volume-label reader over an in-memory volume built from the input; the first byte picks
// the file-system kind and the sector size.
#include <cstdint>
#include <memory>

#include "storage/CPhysicalDisk.h"
#include "session/VolumeLabel.h"

using namespace kestrin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    FsKind kind = static_cast<FsKind>(1 + (data[0] & 3));
    uint32_t sectorSize = (data[0] & 4) ? 4096 : 512;
    CPhysicalDisk disk;
    disk.Attach(std::make_unique<MemorySource>(data + 1, size - 1));
    disk.SetSectorSize(sectorSize);
    disk.SetSectorCount((size - 1) / sectorSize);
    std::u16string label = ReadVolumeLabel(disk, 0, kind);
    return label.size() > 70000 ? 1 : 0;
}
