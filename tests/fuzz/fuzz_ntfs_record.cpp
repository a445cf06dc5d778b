// File-record check and parse (with and without the record's further names and streams), the
// "$MFT" test and the times, on one record of 1024 or 4096 bytes.
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
    // Again with the further names and streams: the item itself comes out the same.
    ScanEntry again;
    NtfsRecordExtras extras;
    ParseFileRecord(rec, again, 7, nullptr, &extras);
    if (again.name != e.name || again.size != e.size || again.parentRecordId != e.parentRecordId) __builtin_trap();
    if (extras.links.size() > kMaxNtfsLinks || extras.streams.size() > kMaxNtfsStreams) __builtin_trap();
    for (const NtfsStream& s : extras.streams)
        if (s.name.empty()) __builtin_trap();
    IsMftRecord(rec, false);
    IsMftRecord(rec, true);
    ItemTimes times;
    if (NtfsRecordTimes(rec, times)) FormatIso8601(times.modified);
    return 0;
}
