// The partition-table reader and source layout over an in-memory disk built from the input.
// The first byte picks the sector size (512 or 4,096), so both table geometries are reached.
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include "storage/CPhysicalDisk.h"
#include "storage/Ldm.h"
#include "storage/PartitionTable.h"
#include "storage/SourceLayout.h"

using namespace kestrin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    static std::FILE* sink = std::fopen("/dev/null", "w");
    static bool installed = [] {
        // A reader that looks at what it is handed, so the hand-off path is exercised.
        SetLdmDatabaseReader([](CPhysicalDisk&, const uint8_t* privhead, const LdmGptAreas* gpt) {
            volatile uint8_t sum = 0;
            if (privhead)
                for (size_t i = 0; i < kPrivheadBytes; ++i) sum = sum + privhead[i];
            return gpt != nullptr && sum != 0;
        });
        return true;
    }();
    (void)installed;
    uint32_t sectorSize = (data[0] & 1) ? 4096 : 512;
    CPhysicalDisk disk;
    disk.Attach(std::make_unique<MemorySource>(data + 1, size - 1));
    disk.SetSectorSize(sectorSize);
    disk.SetSectorCount((size - 1) / sectorSize);
    Layout layout;
    std::vector<PartitionRecord> parts = ListPartitions(disk, layout);
    if (sink) DumpPartitionList(disk, sink);
    // The plain table read as the file-system scans call it.
    ReadPartitionTable(disk);
    return parts.size() > 100000 ? 1 : 0;
}
