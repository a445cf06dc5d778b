#include "storage/CStorageMedia.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/Platform.h"

namespace kestrin {

namespace {
constexpr size_t kDirectAlign = 4096;

struct AlignedBuffer {
    explicit AlignedBuffer(size_t n) : p(static_cast<uint8_t*>(std::aligned_alloc(kDirectAlign, (n + kDirectAlign - 1) / kDirectAlign * kDirectAlign))) {
        if (p) std::memset(p, 0, n);
    }
    ~AlignedBuffer() { std::free(p); }
    uint8_t* p;
};
} // namespace

CStorageMedia::CStorageMedia(std::unique_ptr<ByteSource> handle, uint64_t firstSector, uint64_t sectorCount,
                             uint32_t sectorSize)
    : m_handle(std::move(handle)), m_firstSector(firstSector), m_sectorCount(sectorCount), m_sectorSize(sectorSize) {}

CStorageMedia::~CStorageMedia() = default;

bool CStorageMedia::Transfer(void* buffer, uint32_t byteCount, uint64_t startSector, bool seek, bool write) {
    if (!m_handle) {
        ++m_readFailures;
        return false;
    }
    if (seek) {
        // The position is computed in 64 bits; an overflow is the seek failing. The read is then
        // abandoned only when the recorded error code is non-zero.
        uint64_t pos = startSector * uint64_t(m_sectorSize);
        if (m_sectorSize && pos / m_sectorSize != startSector) {
            if (m_lastError != 0) {
                ++m_readFailures;
                return false;
            }
        } else {
            m_position = pos;
        }
    }
    long long n;
    if (!write && m_handle->NeedsAlignment() &&
        (reinterpret_cast<uintptr_t>(buffer) % kDirectAlign || byteCount % kDirectAlign)) {
        // Unbuffered devices need aligned buffers; read through a bounce buffer.
        if (m_bounce.size() < byteCount + kDirectAlign) m_bounce.resize(byteCount + 2 * kDirectAlign);
        uint8_t* aligned = reinterpret_cast<uint8_t*>(
            (reinterpret_cast<uintptr_t>(m_bounce.data()) + kDirectAlign - 1) / kDirectAlign * kDirectAlign);
        n = m_handle->ReadAt(aligned, byteCount, m_position);
        if (n > 0) std::memcpy(buffer, aligned, size_t(n));
    } else if (write) {
        n = m_handle->WriteAt(buffer, byteCount, m_position);
    } else {
        n = m_handle->ReadAt(buffer, byteCount, m_position);
    }
    if (n < 0) {
        ++m_readFailures;
        if (m_handle->LastError() == platform::kErrDeviceGone) m_deviceGone = true;
        return false;
    }
    if (!write && uint64_t(n) < byteCount) m_bytesPastEnd += byteCount - uint64_t(n);
    m_position += uint64_t(n);
    return true;
}

bool CStorageMedia::ReadSectors(void* buffer, uint32_t byteCount, uint64_t startSector, bool seek) {
    return Transfer(buffer, byteCount, startSector, seek, false);
}

bool CStorageMedia::ReadSectorsBeside(void* buffer, uint32_t byteCount, uint64_t startSector) const {
    if (!m_handle || m_sectorSize == 0 || startSector > UINT64_MAX / m_sectorSize) return false;
    return m_handle->ReadAtBeside(buffer, byteCount, startSector * m_sectorSize) == (long long)byteCount;
}

bool CStorageMedia::WriteSectors(const void* buffer, uint32_t byteCount, uint64_t startSector, bool seek) {
    return Transfer(const_cast<void*>(buffer), byteCount, startSector, seek, true);
}

bool CStorageMedia::ProbeSectorSize() {
    if (!m_handle) return false;
    // The limit is tested before the step is added, so the last size tried is 66,048.
    for (uint32_t size = 0; size <= 65536;) {
        size += 512;
        AlignedBuffer buf(size);
        if (!buf.p) return false;
        long long n = m_handle->ReadAt(buf.p, size, m_position);
        if (n < 0) continue;
        m_position = 0;
        m_sectorSize = size;
        return true;
    }
    return false;
}

void CStorageMedia::DataRunSectors(uint64_t sector, uint64_t& first, uint64_t& end) const {
    first = sector;
    end = UINT64_MAX;
    const uint64_t ss = m_sectorSize;
    if (!m_handle || ss == 0 || sector > UINT64_MAX / ss) return;
    uint64_t start, stop;
    m_handle->DataRun(sector * ss, start, stop);
    if (start == UINT64_MAX) {
        first = end = UINT64_MAX;
        return;
    }
    // Sectors that hold any byte of the run count as data.
    first = std::max(sector, start / ss);
    if (stop != UINT64_MAX) end = std::max(first + 1, stop / ss + (stop % ss ? 1 : 0));
}

std::string CStorageMedia::ErrorText(uint32_t code) { return platform::SysErrorText(code); }

} // namespace kestrin
