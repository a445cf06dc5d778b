#include "carve/scanners/family/CIsoMediaScanner.h"

#include <cstring>

#include "util/Bytes.h"

namespace kestrin {

namespace {
// An ISO base media box (big-endian): its size (1: a 64-bit size follows the type; 0: to the end
// of the file), its four-letter type, then the 64-bit size when there is one. The file-type box
// comes first, with the major brand after its type.
namespace box {
constexpr size_t kSize = 0;
constexpr size_t kType = 4;
constexpr size_t kLargeSize = 8;
constexpr uint32_t kHeaderSize = 8;
constexpr uint32_t kLargeHeaderSize = 16;
constexpr uint64_t kSizeToEnd = 0;
constexpr uint64_t kSizeIsLarge = 1;
constexpr size_t kMajorBrand = 8; // of the file-type box
} // namespace box

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
    return MatchAt(sector, box::kMajorBrand, prefix, std::strlen(prefix));
}

uint64_t CIsoMediaScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, box::kType, "ftyp", 4) || !AcceptsBrands(sector)) return 0;
    uint64_t pos = 0;
    bool movie = false;
    for (int boxes = 0; boxes < kMaxBoxes; ++boxes) {
        // Each box may need a read of its own, far from the last one: a stop is not kept waiting
        // for a hundred thousand of them.
        if (boxes % kStopCheckBoxes == kStopCheckBoxes - 1 && StopRequested()) return 0;
        auto head = Upto(pos, box::kLargeHeaderSize);
        if (head.size() < box::kHeaderSize || !IsTopLevelType(head.data() + box::kType)) break;
        uint64_t size = Be32(head.data() + box::kSize);
        if (size == box::kSizeToEnd) return 0;
        if (size == box::kSizeIsLarge) {
            if (head.size() < box::kLargeHeaderSize) break;
            size = Be64(head.data() + box::kLargeSize);
            if (size < box::kLargeHeaderSize) break;
        } else if (size < box::kHeaderSize) {
            break;
        }
        if (size > kMaxSize - pos) break;
        if (std::memcmp(head.data() + box::kType, "moov", 4) == 0) movie = true;
        pos += size;
    }
    return movie ? pos : 0;
}

} // namespace kestrin
