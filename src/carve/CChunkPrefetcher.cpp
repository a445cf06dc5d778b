#include "carve/CChunkPrefetcher.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "carve/CSectorReader.h"
#include "platform/Platform.h"

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace kestrin {

namespace {

// Makes the pages of [p, p + bytes) present without changing what they hold (the reading thread
// may be reading into them at the same time). Nothing where the system cannot.
void Prefault(void* p, size_t bytes) {
#if defined(__linux__) && defined(MADV_POPULATE_WRITE)
    madvise(p, bytes, MADV_POPULATE_WRITE);
#else
    (void)p, (void)bytes;
#endif
}

} // namespace

CChunkPrefetcher::CChunkPrefetcher(CSectorReader& reader, uint64_t first, uint64_t end, uint32_t chunkSectors,
                                   bool threaded, uint64_t lookAheadSectors)
    : m_reader(reader), m_first(first), m_end(end), m_chunkSectors(chunkSectors), m_sectorSize(reader.SectorSize()),
      m_threaded(threaded) {
    m_chunkCount = end > first && chunkSectors ? (end - first + chunkSectors - 1) / chunkSectors : 0;
    // The chunk being scanned, plus the read-ahead or whatever a look of lookAheadSectors past
    // the scanned chunk's end can reach, whichever is more; never more slots than chunks.
    uint64_t ahead = chunkSectors ? (lookAheadSectors + chunkSectors - 1) / chunkSectors : 0;
    m_reach = std::max(kMinReach, ahead);
    const uint64_t chunkBytes = uint64_t(chunkSectors) * std::max<uint32_t>(m_sectorSize, 1);
    uint64_t slots = 1 + std::max(m_reach, std::max<uint64_t>(1, kReadAheadBytes / std::max<uint64_t>(chunkBytes, 1)));
    m_slots.resize(size_t(std::max<uint64_t>(1, std::min(slots, m_chunkCount))));
    m_slotOf.assign(m_slots.size(), 0);
    for (size_t i = m_slots.size(); i-- > 0;) m_free.push_back(uint32_t(i));
    if (m_chunkCount > 0) {
        constexpr size_t kAlign = 4096;
        m_slotBytes = size_t(std::min<uint64_t>(m_chunkSectors, m_end - m_first)) * m_sectorSize;
        m_slotBytes = (m_slotBytes + kAlign - 1) / kAlign * kAlign;
        m_bufferBytes = m_slotBytes * m_slots.size();
        m_buffers = static_cast<uint8_t*>(platform::AllocateLargeBuffer(m_bufferBytes));
        if (!m_buffers) throw std::bad_alloc();
        for (size_t i = 0; i < m_slots.size(); ++i) m_slots[i].buffer = m_buffers + i * m_slotBytes;
    }
    if (m_threaded && m_chunkCount > 1) m_thread = std::thread([this] { Run(); });
    else m_threaded = false;
    // The first use of a fresh page costs the system far more than the read into it (it is
    // cleared first, and in a virtual machine often backed only then). The first chunks take the
    // slots in order, so while the reading thread starts on the first ones, this thread, which
    // would only wait for them, makes the pages of the last ones present, from the back, until
    // the reader comes near.
    if (m_threaded)
        for (size_t i = m_slots.size(); i-- > 2 && m_nextToRead.load(std::memory_order_relaxed) + 1 < i;)
            Prefault(m_slots[i].buffer, m_slotBytes);
}

CChunkPrefetcher::~CChunkPrefetcher() {
    if (m_thread.joinable()) {
        {
            std::lock_guard lk(m_mutex);
            m_stop = true;
        }
        m_readerCv.notify_all();
        m_thread.join();
    }
    platform::FreeLargeBuffer(m_buffers, m_bufferBytes);
}

// One read of the whole chunk; the part past the source's end is zero, as the loop clears its
// buffer before each read. A chunk that lies wholly in a hole of the source is not read at all.
void CChunkPrefetcher::ReadChunk(uint64_t index, Slot& slot) {
    uint64_t start = m_first + index * m_chunkSectors;
    uint32_t sectors = uint32_t(std::min<uint64_t>(m_chunkSectors, m_end - start));
    uint32_t bytes = sectors * m_sectorSize;
    slot.chunk.sectors = sectors;
    slot.chunk.error = 0;
    if (start >= m_runEnd) m_reader.DataRun(start, m_runFirst, m_runEnd);
    slot.chunk.hole = m_runFirst >= start + sectors;
    if (slot.chunk.hole) {
        slot.chunk.data = nullptr;
        slot.chunk.ok = true;
        return;
    }
    slot.chunk.data = slot.buffer;
    slot.chunk.ok = m_reader.Read(slot.buffer, bytes, start, slot.chunk.error);
    if (slot.chunk.ok) {
        uint64_t present = m_reader.BytesFrom(start * m_sectorSize);
        if (present < bytes) std::memset(slot.buffer + present, 0, bytes - size_t(present));
    }
}

// A slot is free once the loop has moved past the chunk it held; the chunk being scanned
// (m_nextToGive - 1) keeps its slot. The reading goes as far ahead as the slots allow: the time
// the loop spends on a chunk is very uneven (a directory walk or an end search takes many chunks'
// worth of reading at one sector), and a reader that stopped a few chunks ahead would sit idle
// through each of those and leave the loop waiting for every chunk after it. When the loop keeps
// up, the reader is never far ahead and the chunks are still in the processor's cache.
uint64_t CChunkPrefetcher::ReadLimit() const {
    return std::min<uint64_t>(m_chunkCount, m_nextToGive + m_slots.size() - 1);
}

// Either thread sleeps until a batch of chunks can be read or scanned: waking a thread costs
// more than scanning a chunk.
bool CChunkPrefetcher::ReaderHasWork() const {
    uint64_t target = ReadLimit();
    return m_nextToRead < target && (m_mainWaiting || target - m_nextToRead >= m_batch || target == m_chunkCount);
}

void CChunkPrefetcher::Run() {
    for (;;) {
        uint64_t index;
        {
            std::unique_lock lk(m_mutex);
            m_readerWaiting = true;
            m_readerCv.wait(lk, [&] { return m_stop || ReaderHasWork(); });
            m_readerWaiting = false;
            if (m_stop) return;
            index = m_nextToRead;
            Take(index);
        }
        ReadChunk(index, SlotOf(index));
        bool wake;
        {
            std::lock_guard lk(m_mutex);
            ++m_nextToRead;
            wake = m_mainWaiting && m_nextToRead > m_mainWaitsFor;
        }
        if (wake) m_mainCv.notify_one();
    }
}

const CChunkPrefetcher::Chunk& CChunkPrefetcher::WaitFor(uint64_t index) {
    if (!m_threaded) {
        while (m_nextToRead <= index) {
            Take(m_nextToRead);
            ReadChunk(m_nextToRead, SlotOf(m_nextToRead));
            ++m_nextToRead;
        }
        return SlotOf(index).chunk;
    }
    // Mostly the chunk is there already: no lock for that (its slot was recorded before the
    // count was raised).
    if (m_nextToRead.load(std::memory_order_acquire) > index) return SlotOf(index).chunk;
    std::unique_lock lk(m_mutex);
    if (m_nextToRead <= index) {
        // Woken once a batch is there rather than for every chunk.
        m_mainWaitsFor = std::max(index, std::min(index + m_batch, ReadLimit()) - 1);
        m_mainWaiting = true;
        if (m_readerWaiting) m_readerCv.notify_one();
        m_mainCv.wait(lk, [&] { return m_nextToRead > index; });
        m_mainWaiting = false;
    }
    return SlotOf(index).chunk;
}

// Called with the lock held (or without a thread): `index` is below ReadLimit, so fewer than
// all slots are held and one is free.
void CChunkPrefetcher::Take(uint64_t index) {
    m_slotOf[index % m_slotOf.size()] = m_free.back();
    m_free.pop_back();
}

CChunkPrefetcher::Chunk CChunkPrefetcher::Next() {
    if (m_nextToGive >= m_chunkCount) return {};
    uint64_t index = m_nextToGive;
    bool wake = false;
    {
        // The previous chunk's slot is free now.
        std::unique_lock lk(m_mutex, std::defer_lock);
        if (m_threaded) lk.lock();
        if (index > 0) m_free.push_back(m_slotOf[(index - 1) % m_slotOf.size()]);
        ++m_nextToGive;
        wake = m_readerWaiting && ReaderHasWork();
    }
    if (wake) m_readerCv.notify_one();
    return WaitFor(index);
}

std::span<const uint8_t> CChunkPrefetcher::View(uint64_t sector, uint32_t count, std::vector<uint8_t>& scratch,
                                                uint32_t atLeast) {
    if (m_nextToGive == 0 || count == 0 || sector < m_first || sector >= m_end || m_end - sector < count) return {};
    const uint64_t current = m_nextToGive - 1;
    const uint64_t a = (sector - m_first) / m_chunkSectors;
    const uint64_t b = (sector + count - 1 - m_first) / m_chunkSectors;
    if (a < current || b > current + m_reach) return {};
    const Chunk& lastChunk = WaitFor(b);
    if (!lastChunk.ok || lastChunk.hole) return {};
    for (uint64_t i = a; i < b; ++i)
        if (!SlotOf(i).chunk.ok || SlotOf(i).chunk.hole) return {};

    const size_t bps = m_sectorSize;
    auto at = [&](uint64_t s) {
        uint64_t i = (s - m_first) / m_chunkSectors;
        return SlotOf(i).chunk.data + size_t(s - m_first - i * m_chunkSectors) * bps;
    };
    if (a == b) return {at(sector), size_t(count) * bps};
    const uint64_t firstEnd = m_first + (a + 1) * m_chunkSectors;
    if (firstEnd - sector >= atLeast) return {at(sector), size_t(firstEnd - sector) * bps};
    // Copied: no more than the caller needs.
    count = std::min(count, atLeast);
    scratch.resize(size_t(count) * bps);
    uint64_t s = sector;
    const uint64_t last = sector + count;
    while (s < last) {
        uint64_t chunkEnd = m_first + ((s - m_first) / m_chunkSectors + 1) * m_chunkSectors;
        uint64_t n = std::min(last, chunkEnd) - s;
        std::memcpy(scratch.data() + size_t(s - sector) * bps, at(s), size_t(n) * bps);
        s += n;
    }
    return {scratch.data(), scratch.size()};
}

} // namespace kestrin
