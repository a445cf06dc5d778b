#include "carve/scanners/family/CRmScanner.h"

#include <cstring>

#include "util/Bytes.h"

namespace kestrin {

namespace {
// RealMedia (big-endian): chunks of a four-byte id, a 32-bit size that counts the whole chunk,
// and a version. The data chunk then holds its packet count and the packets, each with its
// version and length first.
namespace rm {
constexpr size_t kChunkSize = 4; // u32
constexpr uint32_t kChunkHead = 10;
constexpr uint64_t kMinChunk = 8;
namespace data {
constexpr size_t kPackets = 10; // u32
constexpr uint32_t kHeaderSize = 18;
} // namespace data
namespace packet {
constexpr size_t kVersion = 0; // u16
constexpr size_t kLength = 2;  // u16
constexpr uint32_t kHead = 4;
constexpr uint16_t kMaxVersion = 1;
constexpr uint16_t kMinLength = 12;
} // namespace packet
constexpr uint32_t kEndHeader = 8; // eight zero bytes some writers put after the packets
} // namespace rm

bool IsChunkId(const uint8_t* p) {
    static const char* const kIds[] = {".RMF", "PROP", "MDPR", "CONT", "DATA", "INDX", "RMMD", "RJMD", "RMJE", "TAG "};
    for (const char* k : kIds)
        if (std::memcmp(p, k, 4) == 0) return true;
    return false;
}
} // namespace

// End of the packets of the data chunk at `at` (`length` bytes as claimed): each packet is a
// version (0 or 1), its own length, stream number and time stamp; the walk stops at the chunk's
// end, after the packet count of the chunk header, or at the first packet that cannot be one.
uint64_t CRmScanner::PacketsEnd(uint64_t at, uint64_t length) {
    auto h = At(at, rm::data::kHeaderSize);
    if (h.empty()) return at;
    uint32_t count = Be32(h.data() + rm::data::kPackets);
    uint64_t end = at + length, pos = at + rm::data::kHeaderSize;
    for (uint32_t i = 0; i < count && pos < end; ++i) {
        auto p = At(pos, rm::packet::kHead);
        if (p.empty()) break;
        uint16_t version = Be16(p.data() + rm::packet::kVersion), size = Be16(p.data() + rm::packet::kLength);
        if (version > rm::packet::kMaxVersion || size < rm::packet::kMinLength || size > end - pos) break;
        pos += size;
    }
    return pos;
}

uint64_t CRmScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, ".RMF", 4)) return 0;
    uint64_t pos = 0;
    bool properties = false;
    for (int chunks = 0; chunks < kMaxChunks; ++chunks) {
        auto head = At(pos, rm::kChunkHead);
        if (head.empty() || !IsChunkId(head.data())) break;
        uint64_t length = Be32(head.data() + rm::kChunkSize);
        if (length < rm::kMinChunk || length > kMaxSize - pos) break;
        if (std::memcmp(head.data(), "PROP", 4) == 0) properties = true;
        if (std::memcmp(head.data(), "DATA", 4) == 0) {
            uint64_t packets = PacketsEnd(pos, length);
            if (packets != pos + length) {
                // The data chunk claims more than its packets fill: the file ends after the
                // packets and the end header of eight zero bytes some writers put there.
                auto tail = At(packets, rm::kEndHeader);
                if (!tail.empty() && Be64(tail.data()) == 0) packets += rm::kEndHeader;
                return properties ? packets : 0;
            }
        }
        pos += length;
    }
    return properties ? pos : 0;
}

} // namespace kestrin
