#include "storage/SplitRead.h"

#include <algorithm>
#include <semaphore>
#include <thread>

#include "storage/CStorageMedia.h"

namespace kestrin {

// The second thread: handed one piece at a time, it reads it and says whether it got all of it.
struct CSplitReader::Helper {
    explicit Helper(const CStorageMedia& source) : media(source), thread([this] { Run(); }) {}
    ~Helper() {
        stop = true;
        start.release();
        thread.join();
    }
    void Run() {
        for (;;) {
            start.acquire();
            if (stop) return;
            ok = media.ReadSectorsBeside(buffer, bytes, sector);
            done.release();
        }
    }

    const CStorageMedia& media;
    void* buffer = nullptr;
    uint32_t bytes = 0;
    uint64_t sector = 0;
    bool ok = false;
    bool stop = false;
    std::binary_semaphore start{0}, done{0};
    std::thread thread; // last: the fields above are set up before it runs
};

CSplitReader::CSplitReader(CStorageMedia& media) : m_media(media) {}

CSplitReader::~CSplitReader() = default;

bool CSplitReader::Read(void* buffer, uint32_t byteCount, uint64_t sector) {
    const uint32_t ss = m_media.GetSectorSize();
    // The halves meet on a whole sector and a whole 4 KiB block, which unbuffered devices need.
    const uint32_t unit = std::max<uint32_t>(ss, 4096);
    if (ss == 0 || byteCount < kMinSplitBytes || unit % ss != 0 || !m_media.Handle())
        return m_media.ReadSectors(buffer, byteCount, sector, true);
    const uint32_t first = byteCount / 2 / unit * unit;
    if (first == 0) return m_media.ReadSectors(buffer, byteCount, sector, true);
    if (!m_helper) m_helper = std::make_unique<Helper>(m_media);
    Helper& h = *m_helper;
    h.buffer = static_cast<uint8_t*>(buffer) + first;
    h.bytes = byteCount - first;
    h.sector = sector + first / ss;
    h.start.release();
    const bool mine = m_media.ReadSectorsBeside(buffer, first, sector);
    h.done.acquire();
    if (mine && h.ok) return true;
    return m_media.ReadSectors(buffer, byteCount, sector, true);
}

} // namespace kestrin
