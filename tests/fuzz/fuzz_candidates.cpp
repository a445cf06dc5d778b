// The lost-partition candidates: every sector of the input tried as a boot sector or $MFT
// record, each candidate checked against the input as a disk, then ranked.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "recover/Recover.h"
#include "storage/ByteSource.h"
#include "storage/CPhysicalDisk.h"

using namespace kestrin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 512 || size > (1u << 20)) return 0;
    CPhysicalDisk disk;
    disk.Attach(std::make_unique<MemorySource>(data, size));
    disk.SetSectorSize(512);
    const uint64_t sectors = size / 512;
    disk.SetSectorCount(sectors);
    std::vector<PartitionCandidate> candidates;
    for (uint64_t s = 0; s < sectors; ++s)
        CandidatesFromSector(disk, std::span<const uint8_t>(data + s * 512, size - s * 512), s, sectors, candidates);
    // A few made-up candidates too, so the checker also sees geometry it did not derive itself.
    for (uint64_t s = 0; s < sectors && s < 8; ++s) {
        PartitionCandidate c;
        c.startSector = s;
        c.seenAt = s;
        c.length = sectors * 2;
        c.fsKind = FsKind(1 + s % 4);
        c.source = uint8_t(s % 3);
        c.clusterBytes = 512u << (s % 4);
        c.recordBytes = 1024;
        c.mftCluster = data[s];
        candidates.push_back(c);
    }
    auto ranked = RankCandidates(disk, sectors, std::move(candidates), {}, 256);
    for (const auto& r : ranked)
        if (r.startSector >= sectors) __builtin_trap();
    return 0;
}
