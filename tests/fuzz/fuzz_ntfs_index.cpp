// "INDX" record check and index-entry parsing; LZNT1 decompression of the same bytes.
#include <cstdint>
#include <cstring>
#include <vector>

#include "fs/ntfs/Lznt1.h"
#include "fs/ntfs/NtfsRecord.h"

using namespace kestrin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<uint8_t> rec(data, data + size);
    if (CheckIndexRecord(rec)) {
        size_t folders = 0;
        ParseIndexEntries(rec, [&](NtfsIndexFolder&& f) {
            if (f.name.empty()) __builtin_trap();
            ++folders;
        });
    }
    std::vector<uint8_t> out(16 * 4096, 0);
    bool error = false;
    size_t n = Lznt1Decompress(data, size, out.data(), out.size(), error);
    if (n > out.size()) __builtin_trap();
    return 0;
}
