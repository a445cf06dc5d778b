#pragma once
// Long reads of one media shared by two threads: while the calling thread reads the first half
// of a read, a second thread reads the other half, so a search that reads the whole source and
// does little with each chunk runs at about twice the rate one thread can copy out of the
// system's cache. Only sources that can be read from two threads at once take part (see
// CStorageMedia::ReadSectorsBeside); everything else, and any half that fails or comes up short,
// is read as one ordinary read, so failures and the part past the source's end are found and
// counted exactly as before.
#include <cstdint>
#include <memory>

namespace kestrin {

class CStorageMedia;

class CSplitReader {
public:
    explicit CSplitReader(CStorageMedia& media);
    ~CSplitReader();
    CSplitReader(const CSplitReader&) = delete;
    CSplitReader& operator=(const CSplitReader&) = delete;

    // What media.ReadSectors(buffer, byteCount, sector, true) gives.
    bool Read(void* buffer, uint32_t byteCount, uint64_t sector);

    // Reads shorter than this go in one piece (a hand-over costs more than they would gain).
    static constexpr uint32_t kMinSplitBytes = 1u << 20;

private:
    struct Helper;
    CStorageMedia& m_media;
    std::unique_ptr<Helper> m_helper; // made at the first read that is split
};

} // namespace kestrin
