#pragma once
// The walk shared by TIFF and the TIFF-based camera raw formats: the IFD chain from the header,
// every sub-IFD (SubIFDs, EXIF, GPS, interoperability) in either byte order. The file's size is
// the furthest end of any IFD, value block, strip, tile or JPEG-interchange block referenced,
// rounded up to the word boundary writers pad to.
// A member decides from the facts gathered (maker, model, raw markers) whether the file is its
// own, and the raw members take the largest JPEG found as the embedded preview.
//
// Bounds: at most kMaxIfds directories of at most kMaxEntries entries, kMaxStrips strip or tile
// offsets per directory, and a file of at most kMaxSize bytes.
#include <string>

#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

struct TiffFacts {
    // The header's magic number: the classic one, or the Olympus and Panasonic variants.
    static constexpr uint16_t kClassicMagic = 42;
    static constexpr uint16_t kOlympusMagic = 0x4F52;   // "IIRO"
    static constexpr uint16_t kOlympusSrMagic = 0x5352; // "IIRS"
    static constexpr uint16_t kPanasonicMagic = 0x55;

    bool bigEndian = false;
    uint16_t magic = kClassicMagic;
    bool canonMarker = false; // "CR" at offset 8
    bool dng = false;         // DNGVersion present
    bool rawData = false;     // a colour-filter or linear-raw image, or a raw-only compression
    bool sonyPrivate = false; // the private-data pointer Sony raw files carry
    std::string make, model;
};

class CTiffWalkScanner : public CFamilyScanner {
public:
    static constexpr int kMaxIfds = 64;
    static constexpr uint32_t kMaxEntries = 1000;
    static constexpr uint32_t kMaxStrips = 65536;
    static constexpr uint64_t kMaxSize = 1ull << 30;

    // Helpers for the members' rules (make and model compare from the start, ignoring case).
    static bool MakeIs(const TiffFacts& f, const char* prefix);
    static bool ModelHas(const TiffFacts& f, const char* part);
    static bool IsRawFile(const TiffFacts& f) {
        return f.canonMarker || f.dng || f.rawData || f.magic != TiffFacts::kClassicMagic;
    }

protected:
    explicit CTiffWalkScanner(bool reportsEmbedded) : m_reportsEmbedded(reportsEmbedded) {}
    uint64_t Walk(std::span<const uint8_t> sector) override;
    virtual bool Accepts(const TiffFacts& facts) const = 0;

private:
    bool m_reportsEmbedded;
};

} // namespace kestrin
