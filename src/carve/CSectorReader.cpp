#include "carve/CSectorReader.h"

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
    std::lock_guard lk(m_mutex);
    if (m_media.ReadSectors(buffer, byteCount, sector, true)) return true;
    // The media deliberately keeps its own recorded code; the reason of this failure is the
    // source's system code (errno mapped by the platform layer).
    ByteSource* h = m_media.Handle();
    m_lastError = h ? h->LastError() : 0;
    return false;
}

} // namespace kestrin
