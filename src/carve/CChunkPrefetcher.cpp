#include "carve/CChunkPrefetcher.h"

#include <algorithm>
#include <cstring>

#include "carve/CSectorReader.h"

namespace kestrin {

CChunkPrefetcher::CChunkPrefetcher(CSectorReader& reader, uint64_t first, uint64_t end, uint32_t chunkSectors,
                                   bool threaded)
    : m_reader(reader), m_first(first), m_end(end), m_chunkSectors(chunkSectors), m_sectorSize(reader.SectorSize()),
      m_threaded(threaded) {
    m_chunkCount = end > first && chunkSectors ? (end - first + chunkSectors - 1) / chunkSectors : 0;
    size_t bytes = size_t(std::min<uint64_t>(chunkSectors, end > first ? end - first : 0)) * m_sectorSize;
    for (Slot& s : m_slots) s.buffer.resize(bytes);
    if (m_threaded && m_chunkCount > 1) m_thread = std::thread([this] { Run(); });
    else m_threaded = false;
}

CChunkPrefetcher::~CChunkPrefetcher() {
    if (m_thread.joinable()) {
        {
            std::lock_guard lk(m_mutex);
            m_stop = true;
        }
        m_cv.notify_all();
        m_thread.join();
    }
}

// One read of the whole chunk; the part past the source's end is zero, as the loop clears its
// buffer before each read.
void CChunkPrefetcher::ReadChunk(uint64_t index, Slot& slot) {
    uint64_t start = m_first + index * m_chunkSectors;
    uint32_t sectors = uint32_t(std::min<uint64_t>(m_chunkSectors, m_end - start));
    uint32_t bytes = sectors * m_sectorSize;
    slot.chunk.data = slot.buffer.data();
    slot.chunk.sectors = sectors;
    slot.chunk.ok = m_reader.Read(slot.buffer.data(), bytes, start);
    slot.chunk.error = slot.chunk.ok ? 0 : m_reader.LastError();
    if (slot.chunk.ok) {
        uint64_t present = m_reader.BytesFrom(start * m_sectorSize);
        if (present < bytes) std::memset(slot.buffer.data() + present, 0, bytes - size_t(present));
    }
}

void CChunkPrefetcher::Run() {
    for (;;) {
        uint64_t index;
        {
            std::unique_lock lk(m_mutex);
            // A slot is free once the loop has moved past the chunk it held; the chunk being
            // scanned (m_nextToGive - 1) keeps its slot.
            m_cv.wait(lk, [&] {
                return m_stop || (m_nextToRead < m_chunkCount && m_nextToRead < m_nextToGive + kSlots - 1);
            });
            if (m_stop || m_nextToRead >= m_chunkCount) return;
            index = m_nextToRead;
        }
        Slot& slot = m_slots[index % kSlots];
        ReadChunk(index, slot);
        {
            std::lock_guard lk(m_mutex);
            slot.ready = true;
            ++m_nextToRead;
        }
        m_cv.notify_all();
    }
}

CChunkPrefetcher::Chunk CChunkPrefetcher::Next() {
    if (m_nextToGive >= m_chunkCount) return {};
    uint64_t index = m_nextToGive;
    Slot& slot = m_slots[index % kSlots];
    if (!m_threaded) {
        ReadChunk(index, slot);
        ++m_nextToGive;
        return slot.chunk;
    }
    Chunk c;
    {
        std::unique_lock lk(m_mutex);
        // The previous chunk's slot is free now.
        if (index > 0) m_slots[(index - 1) % kSlots].ready = false;
        ++m_nextToGive;
        m_cv.notify_all();

        m_cv.wait(lk, [&] { return slot.ready; });
        c = slot.chunk;
    }
    return c;
}

} // namespace kestrin
