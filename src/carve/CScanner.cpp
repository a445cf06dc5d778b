#include "carve/CScanner.h"

#include <algorithm>
#include <cstring>

namespace kestrin {

void CScanner::SetSignature(const SignatureRecord& record) {
    m_reserved0 = 0;
    m_reserved1 = 0;
    m_fixedSize = record.fixedSize;
    // The record's length is an 8-bit count; the copy keeps at most 16 bytes of it.
    size_t recordLength = std::min<size_t>(record.header.size(), 255);
    m_headerLength = uint8_t(std::min(recordLength, kMaxHeaderBytes));
    std::memset(m_header, 0, sizeof m_header);
    if (m_headerLength) std::memcpy(m_header, record.header.data(), m_headerLength);
    std::memset(m_extension, 0, sizeof m_extension);
    std::memcpy(m_extension, record.extension.data(), std::min(record.extension.size(), kMaxHeaderBytes));
    m_headerOffset = record.headerOffset;
    m_secondValue = record.secondValue;
    m_typeId = record.typeId;
    m_userDefined = record.userDefined;
    m_category = record.category;
}

bool CScanner::CompareHeader(std::span<const uint8_t> sector) const {
    if (m_headerOffset > sector.size() || sector.size() - m_headerOffset < m_headerLength) return false;
    return std::memcmp(sector.data() + m_headerOffset, m_header, m_headerLength) == 0;
}

std::optional<std::pair<uint32_t, uint8_t>> CScanner::HeaderKey() const {
    if (m_headerLength == 0) return std::nullopt;
    return std::make_pair(m_headerOffset, m_header[0]);
}

} // namespace kestrin
