#pragma once
// The walk shared by the zip-based members: local file headers one after the other (sizes from
// the header, or, when the sizes follow the data, up to the data descriptor that carries them),
// then the central directory's entries, the zip64 end records when present, and the
// end-of-central-directory record with its comment. The file ends after that comment. A member
// with a part prefix takes only archives with a local header whose part name starts with it.
//
// Bounds: kMaxEntries entries each way, kMaxSize bytes.
#include <string_view>

#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CZipFamilyScanner : public CFamilyScanner {
public:
    static constexpr uint32_t kMaxEntries = 65536;
    static constexpr uint64_t kMaxSize = 4ull << 30;

protected:
    // `partPrefix` empty: any archive the walk gets through.
    explicit CZipFamilyScanner(std::string_view partPrefix) : m_partPrefix(partPrefix) {}
    uint64_t Walk(std::span<const uint8_t> sector) override;

private:
    std::string_view m_partPrefix;

    // Offset of the data descriptor that ends data beginning at `dataStart`, or UINT64_MAX.
    uint64_t FindDescriptor(uint64_t dataStart, bool zip64, uint64_t& after);
};

} // namespace kestrin
