#pragma once
// Reads the loop's chunks ahead on a second thread: up to three chunks are read while chunk i is
// scanned, so neither side waits for the other on every chunk. Both buffers are read through the same CSectorReader as the scanners' own reads, so
// the media still sees one reader at a time.
#include <condition_variable>
#include <cstdint>
#include <mutex>
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
    };

    // Chunk i covers sectors first + i × chunkSectors up to `end` (the last one shorter).
    CChunkPrefetcher(CSectorReader& reader, uint64_t first, uint64_t end, uint32_t chunkSectors, bool threaded = true);
    ~CChunkPrefetcher();
    CChunkPrefetcher(const CChunkPrefetcher&) = delete;
    CChunkPrefetcher& operator=(const CChunkPrefetcher&) = delete;

    // The chunks in order; each call hands back the previous chunk's buffer for reuse.
    Chunk Next();
    bool Done() const { return m_nextToGive >= m_chunkCount; }

private:
    struct Slot {
        std::vector<uint8_t> buffer;
        Chunk chunk;
        bool ready = false;
    };
    void ReadChunk(uint64_t index, Slot& slot);
    void Run();

    CSectorReader& m_reader;
    uint64_t m_first, m_end;
    uint32_t m_chunkSectors, m_sectorSize;
    uint64_t m_chunkCount;
    uint64_t m_nextToGive = 0;
    static constexpr uint64_t kSlots = 4;
    Slot m_slots[kSlots];
    bool m_threaded;
    bool m_stop = false;
    uint64_t m_nextToRead = 0;
    std::mutex m_mutex;
    std::condition_variable m_cv;
    std::thread m_thread;
};

} // namespace kestrin
