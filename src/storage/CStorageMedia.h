#pragma once
// The current source: a disk, a volume or an image file, read sector by sector. Every engine
// reads through ReadSectors; nothing reads the source by other means.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "storage/ByteSource.h"

namespace kestrin {

class CStorageMedia {
public:
    CStorageMedia(std::unique_ptr<ByteSource> handle = nullptr, uint64_t firstSector = 0, uint64_t sectorCount = 0,
                  uint32_t sectorSize = 0);
    virtual ~CStorageMedia();
    CStorageMedia(const CStorageMedia&) = delete;
    CStorageMedia& operator=(const CStorageMedia&) = delete;

    // Opens the media named by `path`; fills the handle, sector size and sector count.
    virtual bool Open(const std::u16string& path) = 0;

    // Reads `byteCount` bytes. With `seek` the position first moves to startSector × sector size
    // (absolute on the device or file; the first sector is not added). Without it the read goes
    // on where the last one ended. A short read at the end counts as success and leaves the rest
    // of the buffer as it was.
    bool ReadSectors(void* buffer, uint32_t byteCount, uint64_t startSector, bool seek);
    // All `byteCount` bytes at `startSector` from a second thread while ReadSectors may run on
    // another: nothing of the media changes (no position, count or code). False when the source
    // cannot be read that way, the read failed or came up short: read through ReadSectors then.
    bool ReadSectorsBeside(void* buffer, uint32_t byteCount, uint64_t startSector) const;
    bool WriteSectors(const void* buffer, uint32_t byteCount, uint64_t startSector, bool seek);
    // Probes the smallest read size that succeeds (512, 1024, ... up to 66,048) from the current
    // position and takes it as the sector size.
    bool ProbeSectorSize();
    // The system's text for an error code ("failed to retrieve system error" when there is none).
    static std::string ErrorText(uint32_t code);

    // Attaches an already opened source (an image file, or memory in tests).
    void Attach(std::unique_ptr<ByteSource> handle) { m_handle = std::move(handle); m_position = 0; }
    bool IsOpen() const { return m_handle != nullptr; }
    ByteSource* Handle() { return m_handle.get(); }
    // Bytes the source holds (0 when unknown).
    uint64_t ByteSize() const { return m_handle ? m_handle->Size() : 0; }
    // The first run of sectors at or after absolute sector `sector` that may hold data, as
    // [first, end): the sectors outside such runs lie wholly in holes of a sparse image and read
    // as zeros. first is UINT64_MAX when no data follows, end UINT64_MAX when the run goes on to
    // the end; a source that cannot tell gives {sector, UINT64_MAX}.
    void DataRunSectors(uint64_t sector, uint64_t& first, uint64_t& end) const;

    const std::u16string& GetName() const { return m_name; }
    void SetName(std::u16string v) { m_name = std::move(v); }
    const std::u16string& GetPath() const { return m_path; }
    void SetPath(std::u16string v) { m_path = std::move(v); }
    uint64_t GetFirstSector() const { return m_firstSector; }
    void SetFirstSector(uint64_t v) { m_firstSector = v; }
    uint64_t GetSectorCount() const { return m_sectorCount; }
    void SetSectorCount(uint64_t v) { m_sectorCount = v; }
    uint32_t GetSectorSize() const { return m_sectorSize; }
    void SetSectorSize(uint32_t v) { m_sectorSize = v; }
    uint32_t GetLastError() const { return m_lastError; }
    void SetLastError(uint32_t v) { m_lastError = v; }
    uint8_t GetModeByte() const { return m_modeByte; }
    // Reads that failed since the media was opened (for the "finished with read errors" exit).
    uint64_t ReadFailures() const { return m_readFailures; }
    // Bytes that reads asked for past the end of the source (a short read succeeds, but what it
    // could not deliver was never read: savers count these bytes as unreadable).
    uint64_t BytesPastEnd() const { return m_bytesPastEnd; }
    // A read failed because the source went away (unplugged, medium removed): every walk stops.
    bool DeviceGone() const { return m_deviceGone; }

protected:
    std::unique_ptr<ByteSource> m_handle;
    std::u16string m_name;
    std::u16string m_path;
    uint64_t m_firstSector = 0;
    uint64_t m_sectorCount = 0;
    uint16_t m_word1 = 0, m_word2 = 0;
    uint8_t m_modeByte = 3;
    uint32_t m_sectorSize = 0;
    // Deliberately never fed from the system: a failed read keeps the recorded code, so the
    // error text after a failed Open is that of code 0.
    uint32_t m_lastError = 0;
    uint32_t m_spare = 0;

private:
    bool Transfer(void* buffer, uint32_t byteCount, uint64_t startSector, bool seek, bool write);
    uint64_t m_position = 0; // byte position of the next read without seek
    uint64_t m_bytesPastEnd = 0;
    uint64_t m_readFailures = 0;
    bool m_deviceGone = false;
    std::vector<uint8_t> m_bounce; // aligned copy for unbuffered devices
};

} // namespace kestrin
