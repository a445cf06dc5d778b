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
    m_slotCount = size_t(std::max<uint64_t>(1, std::min(slots, m_chunkCount)));
    m_slots = std::make_unique<Slot[]>(m_slotCount);
    m_slotOf.assign(m_slotCount, 0);
    for (size_t i = m_slotCount; i-- > 0;) m_free.push_back(uint32_t(i));
    if (m_chunkCount > 0) {
        constexpr size_t kAlign = 4096;
        m_slotBytes = size_t(std::min<uint64_t>(m_chunkSectors, m_end - m_first)) * m_sectorSize;
        m_slotBytes = (m_slotBytes + kAlign - 1) / kAlign * kAlign;
        m_bufferBytes = m_slotBytes * m_slotCount;
        m_buffers = static_cast<uint8_t*>(platform::AllocateLargeBuffer(m_bufferBytes));
        if (!m_buffers) throw std::bad_alloc();
        for (size_t i = 0; i < m_slotCount; ++i) m_slots[i].buffer = m_buffers + i * m_slotBytes;
    }
    if (m_threaded && m_chunkCount > 1) m_thread = std::thread([this] { Run(); });
    else m_threaded = false;
    // The first use of a fresh page costs the system far more than the read into it (it is
    // cleared first, and in a virtual machine often backed only then). The first chunks take the
    // slots in order, so while the reading thread starts on the first ones, this thread, which
    // would only wait for them, makes the pages of the last ones present, from the back, until
    // the reader comes near.
    if (m_threaded)
        for (size_t i = m_slotCount; i-- > 2 && m_nextToClaim.load(std::memory_order_relaxed) + 1 < i;)
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

uint64_t CChunkPrefetcher::Claim() {
    const uint64_t index = m_nextToClaim.load(std::memory_order_relaxed);
    m_slotOf[index % m_slotOf.size()] = m_free.back();
    m_free.pop_back();
    Slot& slot = SlotOf(index);
    uint64_t start = m_first + index * m_chunkSectors;
    uint32_t sectors = uint32_t(std::min<uint64_t>(m_chunkSectors, m_end - start));
    slot.chunk.sectors = sectors;
    slot.chunk.error = 0;
    if (start >= m_runEnd) m_reader.DataRun(start, m_runFirst, m_runEnd);
    slot.chunk.hole = m_runFirst >= start + sectors;
    // The slot is recorded before the count is raised (WaitFor looks without the lock).
    m_nextToClaim.store(index + 1, std::memory_order_release);
    if (slot.chunk.hole) {
        slot.chunk.data = nullptr;
        slot.chunk.ok = true;
        slot.ready.store(index + 1, std::memory_order_release);
    }
    return index;
}

// One read of the whole chunk; the part past the source's end is zero, as the loop clears its
// buffer before each read. A chunk that lies wholly in a hole of the source is not read at all.
void CChunkPrefetcher::Fill(uint64_t index) {
    Slot& slot = SlotOf(index);
    if (slot.chunk.hole) return;
    uint64_t start = m_first + index * m_chunkSectors;
    uint32_t bytes = slot.chunk.sectors * m_sectorSize;
    slot.chunk.data = slot.buffer;
    slot.chunk.ok = m_reader.ReadAhead(slot.buffer, bytes, start, slot.chunk.error);
    if (slot.chunk.ok) {
        uint64_t present = m_reader.BytesFrom(start * m_sectorSize);
        if (present < bytes) std::memset(slot.buffer + present, 0, bytes - size_t(present));
    }
    slot.ready.store(index + 1, std::memory_order_release);
}

// A slot is free once the loop has moved past the chunk it held; the chunk being scanned
// (m_nextToGive - 1) keeps its slot. The reading goes as far ahead as the slots allow: the time
// the loop spends on a chunk is very uneven (a directory walk or an end search takes many chunks'
// worth of reading at one sector), and a reader that stopped a few chunks ahead would sit idle
// through each of those and leave the loop waiting for every chunk after it. When the loop keeps
// up, the reader is never far ahead and the chunks are still in the processor's cache.
uint64_t CChunkPrefetcher::ReadLimit() const {
    return std::min<uint64_t>(m_chunkCount, m_nextToGive + m_slotCount - 1);
}

// The reader sleeps until a batch of chunks can be read: waking a thread costs more than
// scanning a chunk.
bool CChunkPrefetcher::ReaderHasWork() const {
    uint64_t target = ReadLimit();
    uint64_t next = m_nextToClaim.load(std::memory_order_relaxed);
    return next < target && (m_mainWaiting || target - next >= kReadBatch || target == m_chunkCount);
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
            index = Claim();
        }
        Fill(index);
        bool wake;
        {
            std::lock_guard lk(m_mutex);
            wake = m_mainWaiting && IsReady(m_mainWaitsFor);
        }
        if (wake) m_mainCv.notify_one();
    }
}

const CChunkPrefetcher::Chunk& CChunkPrefetcher::WaitFor(uint64_t index) {
    // Mostly the chunk is there already: no lock for that.
    if (m_nextToClaim.load(std::memory_order_acquire) > index && IsReady(index)) return SlotOf(index).chunk;
    std::unique_lock lk(m_mutex, std::defer_lock);
    if (m_threaded) lk.lock();
    for (;;) {
        if (m_nextToClaim.load(std::memory_order_relaxed) > index && IsReady(index)) break;
        // Rather than wait for the reading thread, read the next chunk that may be read: the one
        // asked for, or one the loop needs soon after it while the reader is at this one.
        if (m_nextToClaim.load(std::memory_order_relaxed) < ReadLimit()) {
            uint64_t claimed = Claim();
            if (m_threaded) lk.unlock();
            Fill(claimed);
            if (m_threaded) lk.lock();
            continue;
        }
        // Only the reading thread can still be reading it (without a thread, everything up to
        // the limit has been read above).
        m_mainWaitsFor = index;
        m_mainWaiting = true;
        if (m_readerWaiting) m_readerCv.notify_one();
        m_mainCv.wait(lk, [&] { return IsReady(index); });
        m_mainWaiting = false;
        break;
    }
    return SlotOf(index).chunk;
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
    for (uint64_t i = a; i <= b; ++i) {
        const Chunk& c = WaitFor(i);
        if (!c.ok || c.hole) return {};
    }

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
