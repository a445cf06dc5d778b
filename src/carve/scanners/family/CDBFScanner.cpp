#include "carve/scanners/family/CDBFScanner.h"

#include "util/Bytes.h"

namespace kestrin {

namespace {
// dBASE table header (little-endian): version byte, date of the last update (year, month, day),
// record count, header length, record length; 32 bytes, then 32 per field and a terminator.
namespace dbf {
constexpr size_t kMonth = 2, kDay = 3;
using Records = LeField<uint32_t, 4>;
using HeaderLength = LeField<uint16_t, 8>;
using RecordLength = LeField<uint16_t, 10>;
constexpr uint32_t kFixedHeader = 32;
constexpr uint32_t kFieldSize = 32;
constexpr uint32_t kMinHeader = kFixedHeader + 1;
constexpr uint8_t kEndOfFile = 0x1A;
static_assert(RecordLength::kEnd <= kFixedHeader);
} // namespace dbf
} // namespace

uint64_t CDBFScanner::Walk(std::span<const uint8_t> sector) {
    if (!Fits(sector, 0, dbf::kFixedHeader)) return 0;
    const uint8_t* p = sector.data();
    switch (p[0]) {
    case 0x02: case 0x03: case 0x30: case 0x31: case 0x43:
    case 0x63: case 0x83: case 0x8B: case 0xCB: case 0xF5:
        break;
    default:
        return 0;
    }
    if (p[dbf::kMonth] < 1 || p[dbf::kMonth] > 12 || p[dbf::kDay] < 1 || p[dbf::kDay] > 31) return 0;
    uint64_t records = dbf::Records::At(p);
    uint32_t headerLength = dbf::HeaderLength::At(p), recordLength = dbf::RecordLength::At(p);
    if (headerLength < dbf::kMinHeader || recordLength == 0 ||
        (headerLength - dbf::kMinHeader) % dbf::kFieldSize > 1)
        return 0;
    uint64_t size = headerLength + records * recordLength;
    if (size > kMaxSize) return 0;
    auto end = At(size, 1);
    if (!end.empty() && end[0] == dbf::kEndOfFile) ++size;
    return size;
}

} // namespace kestrin
