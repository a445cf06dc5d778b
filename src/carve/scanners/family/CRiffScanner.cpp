#include "carve/scanners/family/CRiffScanner.h"

#include <algorithm>
#include <cstring>

#include "util/Bytes.h"

namespace kestrin {

namespace {
// A RIFF chunk (little-endian): "RIFF", the length of what follows, the form type.
namespace riff {
using Length = LeField<uint32_t, 4>;
constexpr size_t kFormType = 8;
constexpr uint64_t kHeaderSize = 8; // "RIFF" and the length
constexpr uint32_t kHeadWithForm = 12;
} // namespace riff
} // namespace

bool CRiffScanner::Contains(std::span<const uint8_t> head, std::initializer_list<const char*> tags) {
    if (head.size() < 4) return false;
    for (size_t i = 0; i + 4 <= head.size(); ++i)
        for (const char* t : tags)
            if (std::memcmp(head.data() + i, t, 4) == 0) return true;
    return false;
}

uint64_t CRiffScanner::Walk(std::span<const uint8_t> sector) {
    if (!MatchAt(sector, 0, "RIFF", 4) || !MatchAt(sector, riff::kFormType, m_form, 4)) return 0;
    uint64_t size = uint64_t(riff::Length::At(sector.data())) + riff::kHeaderSize;
    if (size < riff::kHeadWithForm || size > Available()) return 0;
    if (!Accepts(Upto(0, uint32_t(std::min<uint64_t>(size, kHeadBytes))))) return 0;
    if (!m_continuations) return size;
    for (int i = 0; i < kMaxContinuations; ++i) {
        auto next = At(size, riff::kHeadWithForm);
        if (next.empty() || !MatchAt(next, 0, "RIFF", 4) || !MatchAt(next, riff::kFormType, "AVIX", 4)) break;
        uint64_t length = uint64_t(riff::Length::At(next.data())) + riff::kHeaderSize;
        if (length > Available() - size) break;
        size += length;
    }
    return size;
}

} // namespace kestrin
