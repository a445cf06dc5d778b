// File-record check and parse, the "$MFT" test and the times, on one record of 1024 or 4096 bytes.
#include <cstdint>
#include <cstring>
#include <vector>

#include "fs/ntfs/NtfsRecord.h"
#include "fs/ntfs/NtfsTimes.h"

using namespace kestrin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    uint32_t recordSize = size > 1024 ? 4096 : 1024;
    std::vector<uint8_t> rec(recordSize, 0);
    std::memcpy(rec.data(), data, size < recordSize ? size : recordSize);
    if (!CheckFileRecord(rec, recordSize)) return 0;
    ScanEntry e;
    ParseFileRecord(rec, e, 7, nullptr);
    IsMftRecord(rec, false);
    IsMftRecord(rec, true);
    ItemTimes times;
    if (NtfsRecordTimes(rec, times)) FormatIso8601(times.modified);
    return 0;
}
