#pragma once
// The walk shared by the ASF members (ASF, WMA, WMV): the header object's sub-objects are
// walked for the file-properties object, whose 64-bit file size is the file's size, and for the
// stream-properties objects, whose stream types tell audio-only files from video files.
//
// Bounds: at most kMaxObjects header objects; a header of at most kMaxHeader bytes.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CAsfFamilyScanner : public CFamilyScanner {
public:
    static constexpr uint32_t kMaxObjects = 1024;
    static constexpr uint64_t kMaxHeader = 16ull << 20;

protected:
    uint64_t Walk(std::span<const uint8_t> sector) override;
    virtual bool Accepts(bool hasAudio, bool hasVideo) const = 0;
};

} // namespace kestrin
