#pragma once
// JPEG: the first marker segment must lead to another marker; the segments are walked to the
// start of scan, then the scan data is searched for the end-of-image marker. Positions are kept
// as a sector number plus an offset inside it, and every read is whole sectors.
#include <vector>

#include "carve/CScanner.h"

namespace kestrin {

class CJpgScanner final : public CScanner {
public:
    // Sectors in the work buffer; the scan search reads that many at a time.
    static constexpr uint32_t kWorkSectors = 63;
    // Farthest distance to the next marker (5 MiB).
    static constexpr uint64_t kMaxSegmentDistance = 0x500000;
    // Hops of the segment walk before giving up.
    static constexpr int kMaxHops = 16;
    // Largest file the scan search carves (30 MiB).
    static constexpr uint64_t kMaxFileSize = 0x1E00000;
    // The buffer is cleared with this fixed length (63 × 512) and the scan search moves on at
    // this position, both whatever the sector size.
    static constexpr uint32_t kClearBytes = 32256;
    static constexpr uint32_t kReloadPosition = 32253;
    // Sectors skipped when a read of the scan search fails.
    static constexpr uint32_t kSkipAfterFailedRead = 10;
    // Largest sector size searched (see Verify).
    static constexpr uint32_t kMaxSectorSize = 16384;

    bool IsHeader(std::span<const uint8_t> sector) override;
    int Verify(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
    uint64_t FindFileSize(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
    uint64_t GetEmbeddedSize() override { return 0; }
    uint64_t GetEmbeddedSector() override { return 0; }
    uint32_t GetEmbeddedOffset() override { return 0; }
    std::u16string_view GetEmbeddedExtension() override { return u".jpg"; }

private:
    bool ReadInto(uint64_t sector, uint32_t sectorCount);
    uint64_t ScanForEnd(uint64_t startSector, uint64_t current, uint32_t position);
    void Release() { m_haveBuffer = false; }

    uint16_t m_bigEndian = 1;
    uint32_t m_readBase[2] = {0, 0};
    // Allocated on first use and kept for the next candidate; m_haveBuffer marks a live candidate.
    std::vector<uint8_t> m_work;
    std::vector<uint8_t> m_scratch; // for reads the loop's read-ahead cannot serve
    bool m_haveBuffer = false;
    uint32_t m_firstFour = 0;
};

} // namespace kestrin
