#pragma once
// The walk shared by the InDesign members: the file is a database of 4096-byte pages whose
// master page (the first) gives the kind at offset 16 ("DOCUMENT", or "BOOKBOOK" for a book),
// the byte order at 24 (1 little-endian, 2 big-endian) and the page count at 280. Contiguous
// object streams may follow the pages: each is a 16-byte marker, its length, the data and a
// 32-byte trailer; they are added as long as the marker follows.
//
// Bounds: kMaxSize bytes, kMaxStreams streams.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CInDesignScanner : public CFamilyScanner {
public:
    static constexpr uint64_t kMaxSize = 2ull << 30;
    static constexpr int kMaxStreams = 100000;
    static constexpr uint32_t kPageSize = 4096;

protected:
    explicit CInDesignScanner(const char* kind) : m_kind(kind) {}
    uint64_t Walk(std::span<const uint8_t> sector) override;

private:
    const char* m_kind;
};

} // namespace kestrin
