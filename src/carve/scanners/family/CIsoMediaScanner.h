#pragma once
// The walk shared by the ISO base media members (MP4, QuickTime, 3GPP, iTunes audio, books and
// video): top-level boxes from the "ftyp" box at the start, 32- or 64-bit sizes, while each box
// type is one that stands at the top level. A box that claims "to the end of the file" (size 0)
// cannot be carved and refuses the candidate; a file without a movie box is refused too.
// Each member accepts its own brands from the first sector.
//
// Bounds: at most kMaxBoxes boxes and kMaxSize (8 GiB) bytes, never past the media's end; a stop
// of the scan ends the walk without a result.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CIsoMediaScanner : public CFamilyScanner {
public:
    static constexpr uint64_t kMaxSize = 0x200000000ull;
    static constexpr int kMaxBoxes = 100000;
    // Boxes walked between two looks at whether the scan is to stop.
    static constexpr int kStopCheckBoxes = 64;

    // The major brand (offset 8) starts with `prefix`.
    static bool MajorBrandIs(std::span<const uint8_t> sector, const char* prefix);

protected:
    uint64_t Walk(std::span<const uint8_t> sector) override;
    virtual bool AcceptsBrands(std::span<const uint8_t> sector) const = 0;
};

} // namespace kestrin
