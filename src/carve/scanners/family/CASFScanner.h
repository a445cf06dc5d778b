#pragma once
// Advanced Systems Format file: any ASF file. Size from the shared header walk. No type id selects
// this class; it never
// takes part in a scan.
#include "carve/scanners/family/CAsfFamilyScanner.h"

namespace kestrin {

class CASFScanner final : public CAsfFamilyScanner {
protected:
    bool Accepts(bool hasAudio, bool hasVideo) const override;
};

} // namespace kestrin
