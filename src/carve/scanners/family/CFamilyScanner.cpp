#include "carve/scanners/family/CFamilyScanner.h"

#include <algorithm>
#include <cstring>

#include "carve/CSectorReader.h"

namespace kestrin {

int CFamilyScanner::Verify(uint64_t sectorNumber, std::span<const uint8_t> sector) {
    m_haveResult = false;
    m_size = 0;
    if (!Begin(sectorNumber)) return 0;
    m_size = Walk(sector);
    if (m_size > m_available) m_size = 0;
    if (m_size == 0) ClearEmbedded();
    m_haveResult = true;
    m_resultSector = sectorNumber;
    return m_size ? 1 : 0;
}

uint64_t CFamilyScanner::FindFileSize(uint64_t sectorNumber, std::span<const uint8_t> sector) {
    if (!m_haveResult || m_resultSector != sectorNumber) Verify(sectorNumber, sector);
    m_haveResult = false;
    return m_size;
}

bool CFamilyScanner::Begin(uint64_t sectorNumber) {
    ClearEmbedded();
    CSectorReader* r = Reader();
    if (!r || r->SectorSize() == 0) return false;
    m_sectorSize = r->SectorSize();
    m_hitSector = sectorNumber;
    m_available = r->BytesFrom(sectorNumber * m_sectorSize);
    m_windowValid = 0;
    m_windowStart = 0;
    return true;
}

bool CFamilyScanner::Load(uint64_t offset) {
    CSectorReader* r = Reader();
    if (offset >= m_available) return false;
    uint64_t firstSector = offset / m_sectorSize;
    uint32_t sectors = std::max<uint32_t>(1, kWindowBytes / m_sectorSize);
    uint64_t end = r->EndSector();
    uint64_t absolute = m_hitSector + firstSector;
    if (absolute >= end) return false;
    if (end - absolute < sectors) sectors = uint32_t(end - absolute);
    uint32_t bytes = sectors * m_sectorSize;
    if (bytes > kWindowBytes) return false; // sectors larger than the window
    m_windowValid = 0;
    // Mostly straight from the loop's read-ahead, without a read or a copy: a window that would
    // cross into the next chunk ends with its first one while that still leaves a whole span
    // after `offset` (Upto loads again from where a span no longer fits).
    const uint32_t atLeast = std::min(sectors, (kMaxSpan + m_sectorSize - 1) / m_sectorSize + 1);
    m_view = r->ReadView(absolute, sectors, m_window, atLeast);
    if (m_view.empty()) {
        r->CountScannerFailure();
        return false;
    }
    m_windowStart = firstSector * m_sectorSize;
    m_windowValid = uint32_t(std::min<uint64_t>(std::min<uint64_t>(bytes, m_view.size()), m_available - m_windowStart));
    return true;
}

std::span<const uint8_t> CFamilyScanner::Upto(uint64_t offset, uint32_t length) {
    if (offset >= m_available || length == 0) return {};
    length = std::min<uint32_t>(length, kMaxSpan);
    uint64_t want = std::min<uint64_t>(length, m_available - offset);
    bool inside = m_windowValid && offset >= m_windowStart && offset - m_windowStart < m_windowValid &&
                  m_windowValid - (offset - m_windowStart) >= want;
    if (!inside && !Load(offset)) return {};
    size_t at = size_t(offset - m_windowStart);
    size_t n = std::min<size_t>(size_t(want), m_windowValid - at);
    return {m_view.data() + at, n};
}

std::span<const uint8_t> CFamilyScanner::At(uint64_t offset, uint32_t length) {
    if (length > kMaxSpan) return {};
    auto s = Upto(offset, length);
    return s.size() == length ? s : std::span<const uint8_t>{};
}

bool CFamilyScanner::StopRequested() const { return Reader() && Reader()->StopRequested(); }

uint64_t CFamilyScanner::Find(uint64_t from, uint64_t limit, const char* needle, uint32_t needleLength) {
    if (needleLength == 0 || needleLength > 64) return UINT64_MAX;
    uint64_t end = from + std::min<uint64_t>(limit, m_available > from ? m_available - from : 0);
    uint64_t pos = from;
    while (pos < end) {
        auto s = Upto(pos, kMaxSpan);
        if (s.size() < needleLength) return UINT64_MAX;
        size_t usable = s.size() - needleLength + 1;
        if (end - pos < usable) usable = size_t(end - pos);
        const uint8_t* p = s.data();
        const uint8_t* stop = p + usable;
        while (p < stop) {
            p = static_cast<const uint8_t*>(std::memchr(p, needle[0], size_t(stop - p)));
            if (!p) break;
            if (std::memcmp(p, needle, needleLength) == 0) return pos + uint64_t(p - s.data());
            ++p;
        }
        pos += usable;
    }
    return UINT64_MAX;
}

void CFamilyScanner::SetEmbedded(uint64_t offset, uint64_t length) {
    if (length == 0 || m_sectorSize == 0) return;
    m_embeddedSector = m_hitSector + offset / m_sectorSize;
    m_embeddedOffset = uint32_t(offset % m_sectorSize);
    m_embeddedSize = length;
}

} // namespace kestrin
