// Run-list decoding from any offset of a buffer.
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
    return 0;
}
