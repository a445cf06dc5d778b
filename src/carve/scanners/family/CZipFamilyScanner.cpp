#include "carve/scanners/family/CZipFamilyScanner.h"

#include <algorithm>

#include "util/Bytes.h"

namespace kestrin {

namespace {
constexpr uint32_t kLocal = 0x04034B50;
constexpr uint32_t kCentral = 0x02014B50;
constexpr uint32_t kDescriptor = 0x08074B50;
constexpr uint32_t kEnd = 0x06054B50;
constexpr uint32_t kZip64End = 0x06064B50;
constexpr uint32_t kZip64Locator = 0x07064B50;
} // namespace

// Data whose sizes follow it: the descriptor (with or without its signature) is the first one
// whose compressed size equals the distance from the data's start, followed by another header.
uint64_t CZipFamilyScanner::FindDescriptor(uint64_t dataStart, bool zip64, uint64_t& after) {
    uint64_t from = dataStart;
    const char signature[4] = {'P', 'K', 7, 8};
    for (int tries = 0; tries < 100000; ++tries) {
        uint64_t at = Find(from, kMaxSize - std::min(kMaxSize, from), signature, 4);
        if (at == UINT64_MAX) return UINT64_MAX;
        uint32_t recordSize = zip64 ? 24 : 16;
        auto d = At(at, recordSize + 4);
        if (!d.empty()) {
            uint64_t compressed = zip64 ? Le64(d.data() + 8) : Le32(d.data() + 8);
            uint32_t next = Le32(d.data() + recordSize);
            if (compressed == at - dataStart && (next == kLocal || next == kCentral)) {
                after = at + recordSize;
                return at;
            }
        }
        from = at + 1;
    }
    return UINT64_MAX;
}

uint64_t CZipFamilyScanner::Walk(std::span<const uint8_t> sector) {
    bool ownPart = m_partPrefix.empty();
    uint64_t pos = 0;
    auto first = ReadLe32(sector, 0);
    if (!first) return 0;
    if (*first == kDescriptor) pos = 4; // a spanned archive's marker
    else if (*first != kLocal) return 0;
    uint32_t locals = 0;
    for (; locals < kMaxEntries; ++locals) {
        auto h = At(pos, 30);
        if (h.empty() || Le32(h.data()) != kLocal) break;
        uint16_t flags = Le16(h.data() + 6);
        uint64_t compressed = Le32(h.data() + 18);
        uint16_t nameLength = Le16(h.data() + 26), extraLength = Le16(h.data() + 28);
        auto name = At(pos + 30, nameLength);
        if (nameLength && name.empty()) return 0;
        if (std::string_view(reinterpret_cast<const char*>(name.data()), name.size()).starts_with(m_partPrefix))
            ownPart = true;
        uint64_t data = pos + 30 + nameLength + extraLength;
        bool zip64 = false;
        if (compressed == 0xFFFFFFFF) {
            // The zip64 extra field holds the real sizes (uncompressed first, then compressed).
            auto extra = At(pos + 30 + nameLength, extraLength);
            for (size_t e = 0; e + 4 <= extra.size();) {
                uint16_t id = Le16(extra.data() + e), len = Le16(extra.data() + e + 2);
                if (id == 1 && len >= 16 && e + 4 + 16 <= extra.size()) {
                    compressed = Le64(extra.data() + e + 12);
                    zip64 = true;
                    break;
                }
                e += 4 + size_t(len);
            }
        }
        if (flags & 8) {
            uint64_t after = 0;
            if (FindDescriptor(data, zip64, after) == UINT64_MAX) return 0;
            pos = after;
        } else {
            if (compressed > kMaxSize - data) return 0;
            pos = data + compressed;
        }
    }
    if (locals == 0) return 0;
    // The central directory.
    uint32_t centrals = 0;
    for (; centrals < kMaxEntries; ++centrals) {
        auto h = At(pos, 46);
        if (h.empty() || Le32(h.data()) != kCentral) break;
        pos += 46 + uint64_t(Le16(h.data() + 28)) + Le16(h.data() + 30) + Le16(h.data() + 32);
    }
    if (centrals == 0) return 0;
    auto h = At(pos, 22);
    if (!h.empty() && Le32(h.data()) == kZip64End) {
        auto z = At(pos, 12);
        if (z.empty()) return 0;
        uint64_t length = Le64(z.data() + 4);
        if (length > 0x10000) return 0;
        pos += 12 + length;
        h = At(pos, 22);
    }
    if (!h.empty() && Le32(h.data()) == kZip64Locator) {
        pos += 20;
        h = At(pos, 22);
    }
    if (h.empty() || Le32(h.data()) != kEnd) return 0;
    pos += 22 + uint64_t(Le16(h.data() + 20));
    if (!ownPart) return 0;
    return pos;
}

} // namespace kestrin
