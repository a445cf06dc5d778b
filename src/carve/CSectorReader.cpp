#include "carve/CSectorReader.h"

#include <cstring>

#include "carve/CChunkPrefetcher.h"
#include "job/ScanContext.h"
#include "platform/Platform.h"
#include "storage/CPhysicalDisk.h"

namespace kestrin {

CSectorReader::CSectorReader(CPhysicalDisk& media) : m_media(media), m_sectorSize(media.GetSectorSize()) {
    // The source's own size when it is known (image files, devices); else the media's range.
    m_byteSize = media.ByteSize();
    uint64_t rangeEnd = media.GetFirstSector() + media.GetSectorCount();
    if (m_byteSize == 0 && m_sectorSize) m_byteSize = rangeEnd * m_sectorSize;
    m_endSector = m_sectorSize ? m_byteSize / m_sectorSize + (m_byteSize % m_sectorSize ? 1 : 0) : 0;
}

bool CSectorReader::Read(void* buffer, uint32_t byteCount, uint64_t sector) {
    uint32_t error;
    if (Read(buffer, byteCount, sector, error)) return true;
    if (error == platform::kErrDeviceGone) m_goneInScannerRead = true;
    return false;
}

bool CSectorReader::Read(void* buffer, uint32_t byteCount, uint64_t sector, uint32_t& error) {
    std::lock_guard lk(m_mutex);
    error = 0;
    if (m_media.ReadSectors(buffer, byteCount, sector, true)) return true;
    // The media deliberately keeps its own recorded code; the reason of this failure is the
    // source's system code (errno mapped by the platform layer).
    ByteSource* h = m_media.Handle();
    error = h ? h->LastError() : 0;
    m_lastError = error;
    return false;
}

bool CSectorReader::ReadAhead(void* buffer, uint32_t byteCount, uint64_t sector, uint32_t& error) {
    if (m_media.ReadSectorsBeside(buffer, byteCount, sector)) {
        error = 0;
        return true;
    }
    return Read(buffer, byteCount, sector, error);
}

bool CSectorReader::StopRequested() const { return m_scan && m_scan->StopRequested(); }

void CSectorReader::DataRun(uint64_t sector, uint64_t& first, uint64_t& end) const {
    m_media.DataRunSectors(sector, first, end);
}

std::span<const uint8_t> CSectorReader::ReadView(uint64_t sector, uint32_t count, std::vector<uint8_t>& scratch,
                                                 uint32_t atLeast) {
    if (m_window) {
        std::span<const uint8_t> view = m_window->View(sector, count, scratch, atLeast);
        if (!view.empty()) return view;
    }
    // Not in the window (or a chunk of it failed): the scanner's own read, so a failure here is
    // the same as it always was.
    if (m_sectorSize == 0 || count > UINT32_MAX / m_sectorSize || sector > UINT64_MAX / m_sectorSize) return {};
    uint32_t bytes = count * m_sectorSize;
    scratch.resize(bytes);
    if (!Read(scratch.data(), bytes, sector)) return {};
    uint64_t present = BytesFrom(sector * m_sectorSize);
    if (present < bytes) std::memset(scratch.data() + present, 0, bytes - size_t(present));
    return {scratch.data(), bytes};
}

} // namespace kestrin
