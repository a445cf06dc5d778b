#pragma once
// The signature scan's one way to the media: the loop's read-ahead and the scanners' own reads
// all pass through here. Reads that go through the media object take turns, as it keeps a file
// position and counters and has no lock of its own; only the read-ahead's reads of a source that
// can be read from two threads at once (ReadAhead) go beside them.
#include <atomic>
#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

namespace kestrin {

class CChunkPrefetcher;
class CPhysicalDisk;
struct ScanContext;

class CSectorReader {
public:
    explicit CSectorReader(CPhysicalDisk& media);

    // `byteCount` bytes at absolute sector `sector` (seek read) for a scanner. False on failure,
    // with the system code of the failure in LastError().
    bool Read(void* buffer, uint32_t byteCount, uint64_t sector);
    // The same, with the system code of a failure in `error` (taken under the lock: the loop's
    // reading thread and the scanners read at the same time).
    bool Read(void* buffer, uint32_t byteCount, uint64_t sector, uint32_t& error);
    // The read-ahead's read: the same as Read, but where the source allows it the bytes are read
    // without waiting for the scanners' reads (only a read that fails or comes up short takes
    // the lock and is read again as above, so failures are found and kept as before).
    bool ReadAhead(void* buffer, uint32_t byteCount, uint64_t sector, uint32_t& error);
    // `count` sectors at absolute sector `sector` for a scanner, as one Read of them would give
    // them, with the part past the source's end zero. Taken from the loop's read-ahead window when
    // it holds them (no read at all, often no copy), else read into `scratch`. Empty when the read
    // fails (system code in LastError()). Valid until the next call or the loop's next chunk.
    // With `atLeast` below count the view may be shorter, down to that many sectors, where that
    // spares a copy (see CChunkPrefetcher::View).
    std::span<const uint8_t> ReadView(uint64_t sector, uint32_t count, std::vector<uint8_t>& scratch,
                                      uint32_t atLeast = UINT32_MAX);
    // The loop's chunks, for ReadView; null outside the loop.
    void SetWindow(CChunkPrefetcher* window) { m_window = window; }
    // The scan the reads belong to: long walks inside a scanner ask it whether to stop (and wait
    // while the front end holds the scan). Null: never.
    void SetScan(ScanContext* ctx) { m_scan = ctx; }
    bool StopRequested() const;
    // System code of the last failed read (5 access denied, 55 device gone, ...).
    uint32_t LastError() const { return m_lastError.load(); }
    uint32_t SectorSize() const { return m_sectorSize; }
    // First sector past the source: scanners never walk beyond it.
    uint64_t EndSector() const { return m_endSector; }
    // The first run of sectors at or after `sector` that may hold data, as [first, end) (see
    // CStorageMedia::DataRunSectors): the rest lies in holes of a sparse image and is all zero.
    void DataRun(uint64_t sector, uint64_t& first, uint64_t& end) const;
    // Bytes the source holds from absolute byte `offset` on (0 at or past the end).
    uint64_t BytesFrom(uint64_t offset) const { return offset < m_byteSize ? m_byteSize - offset : 0; }
    // Reads that failed inside scanners (kept for the end-of-scan summary).
    uint64_t ScannerReadFailures() const { return m_scannerFailures; }
    void CountScannerFailure() { ++m_scannerFailures; }
    // True once a scanner's read (not the loop's read-ahead) found the source gone.
    bool SourceGoneInScannerRead() const { return m_goneInScannerRead; }
    CPhysicalDisk& Media() { return m_media; }

    // What the compound-document directory walk found from one hit sector. The Word, Excel and
    // PowerPoint scanners walk the same sectors and differ only in the stream they look for, so
    // one walk answers all three (bit i set: stream i found; `sector` is the hit it belongs to).
    struct DirectoryWalk {
        uint64_t sector = UINT64_MAX;
        uint8_t found = 0;
    };
    DirectoryWalk& CompoundDirectoryWalk() { return m_directoryWalk; }
    // What the directory walk needs to know of each sector it passes (a small code per sector,
    // see CCompoundScanner), for the last sectors walked: the walks of nearby hits cover mostly
    // the same 20 MiB, and each sector is looked at once instead of once per walk. Kept for the
    // run [from, to) of absolute sectors, at most codes.size() of them, in a ring.
    struct SectorMarks {
        uint64_t from = 0, to = 0;
        std::vector<uint8_t> codes;
    };
    SectorMarks& CompoundSectorMarks() { return m_sectorMarks; }
    // The allocation-table sectors the compound-document size rule read last (C bytes at
    // `sector`, past the source's end zero). The rule counts the sector from the start of the
    // source, so the documents of a disk mostly name the same few; kept in the order read, the
    // oldest replaced first.
    struct TableSector {
        uint64_t sector = UINT64_MAX;
        std::vector<uint8_t> data;
    };
    static constexpr size_t kTableSectorsKept = 4;
    struct TableSectors {
        TableSector kept[kTableSectorsKept];
        size_t next = 0; // the one replaced next
    };
    TableSectors& CompoundTableSectors() { return m_tableSectors; }

private:
    CPhysicalDisk& m_media;
    std::mutex m_mutex;
    uint32_t m_sectorSize;
    uint64_t m_byteSize;
    uint64_t m_endSector;
    std::atomic<uint32_t> m_lastError{0};
    uint64_t m_scannerFailures = 0;
    bool m_goneInScannerRead = false;
    DirectoryWalk m_directoryWalk;
    SectorMarks m_sectorMarks;
    TableSectors m_tableSectors;
    CChunkPrefetcher* m_window = nullptr;
    ScanContext* m_scan = nullptr;
};

} // namespace kestrin
