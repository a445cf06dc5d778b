#include "carve/scanners/family/CIsoMediaScanner.h"

#include <cstring>

#include "util/Bytes.h"

namespace kestrin {

namespace {
bool IsTopLevelType(const uint8_t* t) {
    static const char* const kTypes[] = {"ftyp", "moov", "mdat", "free", "skip", "wide", "uuid", "meta",
                                         "pdin", "moof", "mfra", "sidx", "ssix", "styp", "prft", "emsg",
                                         "pnot", "PICT", "junk", "bloc", "udta", "beam", "ipmc", "mvhd"};
    for (const char* k : kTypes)
        if (std::memcmp(t, k, 4) == 0) return true;
    return false;
}
} // namespace

bool CIsoMediaScanner::MajorBrandIs(std::span<const uint8_t> sector, const char* prefix) {
    return MatchAt(sector, 8, prefix, std::strlen(prefix));
}

uint64_t CIsoMediaScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 4, "ftyp", 4) || !AcceptsBrands(sector)) return 0;
    uint64_t pos = 0;
    bool movie = false;
    for (int boxes = 0; boxes < kMaxBoxes; ++boxes) {
        auto head = Upto(pos, 16);
        if (head.size() < 8 || !IsTopLevelType(head.data() + 4)) break;
        uint64_t size = Be32(head.data());
        if (size == 0) return 0;
        if (size == 1) {
            if (head.size() < 16) break;
            size = Be64(head.data() + 8);
            if (size < 16) break;
        } else if (size < 8) {
            break;
        }
        if (size > kMaxSize - pos) break;
        if (std::memcmp(head.data() + 4, "moov", 4) == 0) movie = true;
        pos += size;
    }
    return movie ? pos : 0;
}

} // namespace kestrin
