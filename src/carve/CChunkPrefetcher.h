#pragma once
// Reads the loop's chunks ahead on a second thread: the chunks after chunk i are read while it
// is scanned, so neither side waits for the other on every chunk. When the loop's thread gets
// to a chunk that is still being read, it reads the next ones itself instead of waiting: the
// two threads then share the reading. The chunks form a window that
// scanners may look into (View): a scanner that wants sectors ahead of the scan position gets
// them from the chunks the loop will scan next, read once, in large sequential reads. All reads
// go through the same CSectorReader as the scanners' own reads (see CSectorReader::ReadAhead for
// which of them take turns).
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <thread>
#include <vector>

namespace kestrin {

class CSectorReader;

class CChunkPrefetcher {
public:
    struct Chunk {
        const uint8_t* data = nullptr; // chunkSectors × sector size bytes; valid until the next Get
        uint32_t sectors = 0;
        bool ok = false;
        uint32_t error = 0; // system code when !ok
        // Wholly inside a hole of a sparse source: not read, no data; its sectors are all zero.
        bool hole = false;
    };

    // Chunk i covers sectors first + i × chunkSectors up to `end` (the last one shorter).
    // `lookAheadSectors`: how far past the end of the chunk being scanned View may reach (at
    // least four chunks). The chunks are read that far ahead, or 8 MiB ahead when that is more,
    // so the window takes about that much memory plus a chunk.
    CChunkPrefetcher(CSectorReader& reader, uint64_t first, uint64_t end, uint32_t chunkSectors, bool threaded = true,
                     uint64_t lookAheadSectors = 0);
    ~CChunkPrefetcher();
    CChunkPrefetcher(const CChunkPrefetcher&) = delete;
    CChunkPrefetcher& operator=(const CChunkPrefetcher&) = delete;

    // The chunks in order; each call hands back the previous chunk's buffer for reuse.
    Chunk Next();
    bool Done() const { return m_nextToGive >= m_chunkCount; }

    // Sectors [sector, sector + count) from the chunk being scanned and the ones after it, for the
    // thread that calls Next. Points into the chunk when the range lies in one chunk, else the
    // range is copied into `scratch`. Empty when any of it lies before the chunk being scanned,
    // past the window or past `end`, or in a chunk whose read failed: the caller reads it itself.
    // With `atLeast` below count, a range that crosses into the next chunk is cut at the end of
    // its first chunk instead of copied, when at least that many sectors lie before it.
    std::span<const uint8_t> View(uint64_t sector, uint32_t count, std::vector<uint8_t>& scratch,
                                  uint32_t atLeast = UINT32_MAX);

private:
    struct Slot {
        uint8_t* buffer = nullptr; // in m_buffers
        Chunk chunk;
        // index + 1 of the chunk whose read into this slot is complete; 0 while none is.
        std::atomic<uint64_t> ready{0};
    };
    // The slot that holds chunk `index` (taken for reading, and not yet given back).
    Slot& SlotOf(uint64_t index) { return m_slots[m_slotOf[index % m_slotOf.size()]]; }
    bool IsReady(uint64_t index) { return SlotOf(index).ready.load(std::memory_order_acquire) == index + 1; }
    // With the lock held (or without a thread): takes the next chunk for reading into a free
    // slot and returns its index. A chunk wholly in a hole of the source is complete at once.
    uint64_t Claim();
    // Reads a claimed chunk, without the lock, and marks it complete.
    void Fill(uint64_t index);
    // Chunk `index` is read (the loop has taken chunk index - slots + 1 or later).
    const Chunk& WaitFor(uint64_t index);
    // Chunks that may be read now: past the one being scanned, within the slots.
    uint64_t ReadLimit() const;
    bool ReaderHasWork() const;
    void Run();

    CSectorReader& m_reader;
    // The run of data the last chunks fell in (see CSectorReader::DataRun); used under the lock.
    uint64_t m_runFirst = 0, m_runEnd = 0;
    uint64_t m_first, m_end;
    uint32_t m_chunkSectors, m_sectorSize;
    uint64_t m_chunkCount;
    uint64_t m_nextToGive = 0;
    // How far View reaches past the scanned chunk at least, the read-ahead when no scanner
    // looks further, and the fewest chunks a sleeping reader is woken for.
    static constexpr uint64_t kMinReach = 4;
    static constexpr uint64_t kReadAheadBytes = 8u << 20;
    static constexpr uint64_t kReadBatch = 2;
    uint64_t m_reach = kMinReach; // chunks past the scanned one that View may reach
    std::unique_ptr<Slot[]> m_slots;
    size_t m_slotCount = 0;
    // One page-aligned region for the buffers of all slots (an unbuffered device reads straight
    // into it), not cleared (see the constructor for how its pages are made present).
    uint8_t* m_buffers = nullptr;
    size_t m_bufferBytes = 0, m_slotBytes = 0;
    // At most m_slots.size() chunks are held at once, so chunk i's slot number is kept at
    // i modulo that. Free slots are taken last-freed first, the first chunks in slot order.
    std::vector<uint32_t> m_slotOf;
    std::vector<uint32_t> m_free;
    bool m_threaded;
    bool m_stop = false;
    // Chunks below it are taken for reading (by the reading thread, or by the loop's thread
    // while it would otherwise wait); they complete in any order.
    std::atomic<uint64_t> m_nextToClaim{0};
    bool m_readerWaiting = false, m_mainWaiting = false;
    uint64_t m_mainWaitsFor = 0; // the chunk the loop's thread waits for, while m_mainWaiting
    std::mutex m_mutex;
    // Each side is woken only when it sleeps and has something to do.
    std::condition_variable m_readerCv, m_mainCv;
    std::thread m_thread;
};

} // namespace kestrin
