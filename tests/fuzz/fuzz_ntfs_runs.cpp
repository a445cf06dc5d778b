// Run-list decoding from any offset of a buffer, without and with a volume size.
#include <cstdint>
#include <vector>

#include "fs/ntfs/NtfsRecord.h"

using namespace kestrin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    std::vector<NtfsRun> runs;
    Bytes b(data + 1, size - 1);
    DecodeRuns(b, data[0], runs);
    // Runs from a list never outnumber its bytes.
    if (runs.size() > b.size()) __builtin_trap();
    // With a volume size every run decoded starts inside it, and the lengths add up to a VCN.
    const uint64_t volume = uint64_t(data[0] + 1) << 24;
    runs.clear();
    DecodeRuns(b, data[0], runs, volume);
    uint64_t vcn = 0;
    for (const NtfsRun& r : runs) {
        if (!r.sparse && r.startCluster >= volume) __builtin_trap();
        if (r.lengthClusters > uint64_t(INT64_MAX) - vcn) __builtin_trap();
        vcn += r.lengthClusters;
    }
    return 0;
}
