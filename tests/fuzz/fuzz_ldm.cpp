// The dynamic-disk database reader over a configuration area in memory: TOCBLOCK, VMDB and VBLK
// records with any counts and sizes, then the extent source of every volume it assembles.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "storage/ByteSource.h"
#include "storage/CPhysicalDisk.h"
#include "storage/Ldm.h"

using namespace kestrin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1024 || size > (4u << 20)) return 0;
    // The input is the configuration area itself (sector 0 of it is not used by the reader).
    auto source = std::make_unique<MemorySource>(data, size);
    ByteSource& base = *source;
    CPhysicalDisk disk;
    disk.Attach(std::move(source));
    disk.SetSectorSize(512);
    disk.SetSectorCount(size / 512);
    auto volumes = ReadLdmVolumes(disk, 0, size / 512, data[0], "");
    uint8_t buf[4096];
    for (const auto& v : volumes) {
        ExtentSource es(base, v, 512);
        es.ReadAt(buf, sizeof buf, 0);
        if (es.Size() > sizeof buf) es.ReadAt(buf, sizeof buf, es.Size() - sizeof buf / 2);
    }
    return 0;
}
