#pragma once
// The walk shared by the zip-based members: local file headers one after the other (sizes from
// the header, or, when the sizes follow the data, up to the data descriptor that carries them),
// then the central directory's entries, the zip64 end records when present, and the
// end-of-central-directory record with its comment. The file ends after that comment. Members
// see the part names of the local headers to tell their own archives.
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
    uint64_t Walk(std::span<const uint8_t> sector) override;
    // Called with each local header's part name; the member answers whether the archive is its
    // own so far (the last answer counts).
    virtual void SeePart(std::string_view name) = 0;
    virtual void Reset() = 0;
    virtual bool Accepted() const = 0;

private:
    // Offset of the data descriptor that ends data beginning at `dataStart`, or UINT64_MAX.
    uint64_t FindDescriptor(uint64_t dataStart, bool zip64, uint64_t& after);
};

} // namespace kestrin
