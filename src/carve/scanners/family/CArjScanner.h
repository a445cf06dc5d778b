#pragma once
// ARJ archive: the main header (a comment header whose CRC-32 checks), then one local header per
// member (basic header with its CRC, extended headers, then the member's compressed data), up
// to the end-of-archive header of size 0.
//
// Bounds: kMaxMembers members, kMaxSize bytes.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CArjScanner final : public CFamilyScanner {
public:
    static constexpr uint32_t kMaxMembers = 65536;
    static constexpr uint64_t kMaxSize = 4ull << 30;
    static constexpr uint16_t kMaxBasicHeader = 2600;

protected:
    uint64_t Walk(std::span<const uint8_t> sector) override;

private:
    // Reads the header at `pos`: its basic size (0 = end of archive), and moves `pos` past it
    // and its extended headers; nullopt when it is not a valid header.
    std::optional<uint16_t> ReadHeader(uint64_t& pos, uint64_t& compressed, uint8_t& fileType);
};

} // namespace kestrin
