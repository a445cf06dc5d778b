#include "storage/ByteSource.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace kestrin {

std::unique_ptr<SplitFileSource> SplitFileSource::Open(const std::string& firstPath, uint32_t& error) {
    error = 0;
    if (firstPath.size() < 4 || firstPath.compare(firstPath.size() - 4, 4, ".001") != 0) {
        error = platform::kErrInvalidParameter;
        return nullptr;
    }
    auto src = std::unique_ptr<SplitFileSource>(new SplitFileSource);
    std::string stem = firstPath.substr(0, firstPath.size() - 3);
    // Three digits at least; numbering stops at the first missing part.
    for (unsigned n = 1; n < 100000; ++n) {
        char num[16];
        std::snprintf(num, sizeof num, "%03u", n);
        platform::File f;
        if (!f.OpenRead(stem + num)) {
            if (n == 1) {
                error = f.LastError();
                return nullptr;
            }
            break;
        }
        uint64_t size = f.Size();
        src->m_parts.push_back({std::move(f), src->m_total, size});
        src->m_total += size;
    }
    return src;
}

long long SplitFileSource::ReadAt(void* buf, size_t len, uint64_t offset) {
    auto* out = static_cast<uint8_t*>(buf);
    size_t got = 0;
    for (auto& part : m_parts) {
        if (got == len) break;
        uint64_t pos = offset + got;
        if (pos >= part.start + part.size || pos < part.start) continue;
        uint64_t inPart = pos - part.start;
        size_t want = size_t(std::min<uint64_t>(len - got, part.size - inPart));
        long long n = part.file.ReadAt(out + got, want, inPart);
        if (n < 0) {
            m_lastError = part.file.LastError();
            return got ? (long long)got : -1;
        }
        got += size_t(n);
        if (size_t(n) < want) break;
    }
    return (long long)got;
}

void SplitFileSource::DataRun(uint64_t offset, uint64_t& start, uint64_t& end) const {
    for (const Part& part : m_parts) {
        if (offset >= part.start + part.size) continue;
        uint64_t from = offset > part.start ? offset - part.start : 0;
        uint64_t s, e;
        part.file.DataRun(from, s, e);
        if (s >= part.size) continue; // the rest of this part is a hole
        start = part.start + s;
        end = part.start + std::min(e, part.size);
        return;
    }
    start = end = UINT64_MAX;
}

long long MemorySource::ReadAt(void* buf, size_t len, uint64_t offset) {
    if (m_failLen && offset < m_failStart + m_failLen && m_failStart < offset + len) {
        m_error = platform::kErrNotReady + 2; // data error
        return -1;
    }
    if (offset >= m_data.size()) return 0;
    size_t n = size_t(std::min<uint64_t>(len, m_data.size() - offset));
    std::memcpy(buf, m_data.data() + offset, n);
    return (long long)n;
}

long long MemorySource::WriteAt(const void* buf, size_t len, uint64_t offset) {
    if (offset + len > m_data.size()) m_data.resize(size_t(offset + len));
    std::memcpy(m_data.data() + offset, buf, len);
    return (long long)len;
}

} // namespace kestrin
