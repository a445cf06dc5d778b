#include "carve/scanners/family/CMP4Scanner.h"

#include <cstring>

namespace kestrin {

bool CMP4Scanner::AcceptsBrands(std::span<const uint8_t> sector) const {
    static const char* const kOthers[] = {"qt ", "3g2", "M4A", "M4B", "M4V", "3gp"};
    for (size_t at = 0; at < 500 && at + 3 <= sector.size(); ++at) {
        const uint8_t* p = sector.data() + at;
        for (const char* other : kOthers)
            if (std::memcmp(p, other, 3) == 0) return false;
        if (std::memcmp(p, "mp4", 3) == 0 || std::memcmp(p, "avc", 3) == 0) return true;
    }
    return false;
}

} // namespace kestrin
