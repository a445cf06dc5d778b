#pragma once
// AIFF and AIFF-C audio: a big-endian "FORM" chunk of form type "AIFF" or "AIFC" that opens
// with a known chunk; the size is the FORM length plus its 8-byte header.
#include "carve/scanners/family/CFamilyScanner.h"

namespace kestrin {

class CAIFFScanner final : public CFamilyScanner {
protected:
    uint64_t Walk(std::span<const uint8_t> sector) override;
};

} // namespace kestrin
