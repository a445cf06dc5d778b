// The partition-table reader and source layout over an in-memory disk built from the input,
// dynamic-disk databases included. The first byte picks the sector size (512 or 4,096), so both
// table geometries are reached; the size the bytes declare is worked out as well.
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include "storage/CPhysicalDisk.h"
#include "storage/PartitionTable.h"
#include "storage/SectorSize.h"
#include "storage/SourceLayout.h"

using namespace kestrin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    static std::FILE* sink = std::fopen("/dev/null", "w");
    uint32_t sectorSize = (data[0] & 1) ? 4096 : 512;
    CPhysicalDisk disk;
    disk.Attach(std::make_unique<MemorySource>(data + 1, size - 1));
    uint32_t declared = DeclaredSectorSize(*disk.Handle());
    if (declared != 0 && !IsSupportedSectorSize(declared)) return 1;
    disk.SetSectorSize(sectorSize);
    disk.SetSectorCount((size - 1) / sectorSize);
    Layout layout;
    std::vector<PartitionRecord> parts = ListPartitions(disk, layout);
    if (sink) DumpPartitionList(disk, sink);
    // The plain table read as the file-system scans call it.
    ReadPartitionTable(disk);
    return parts.size() > 100000 ? 1 : 0;
}
