#pragma once
// Windows Media video: an ASF file with a video stream. Size from the shared header walk. No type
// id selects this class; it never
// takes part in a scan.
#include "carve/scanners/family/CAsfFamilyScanner.h"

namespace kestrin {

class CWMVScanner final : public CAsfFamilyScanner {
protected:
    bool Accepts(bool hasAudio, bool hasVideo) const override;
};

} // namespace kestrin
