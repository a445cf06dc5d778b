#include "carve/scanners/CJpgScanner.h"

#include <algorithm>
#include <cstring>

#include "carve/CSectorReader.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {
constexpr uint16_t kStartOfScan = 0xFFDA;
constexpr uint16_t kEndOfImage = 0xFFD9;
// The first segment's big-endian length stands after the start-of-image marker and its own
// marker; the next segment begins that many bytes after the length field.
constexpr size_t kFirstSegmentLength = 4;
constexpr size_t kMarkerSize = 2;
} // namespace

bool CJpgScanner::IsHeader(std::span<const uint8_t> sector) {
    m_bigEndian = 1;
    m_readBase[0] = m_readBase[1] = 0;
    return CompareHeader(sector);
}

// Reads `sectorCount` sectors at `sector` into the front of the work buffer. Nothing is read at
// or past the source's end, and the part of a read that runs past it is zero.
bool CJpgScanner::ReadInto(uint64_t sector, uint32_t sectorCount) {
    CSectorReader* r = Reader();
    uint32_t bps = r->SectorSize();
    if (sector >= r->EndSector()) return false;
    // From the loop's read-ahead when it reaches that far (the file lies just ahead of the scan
    // position); the search does not ask for more of it, a JPEG being mostly small.
    std::span<const uint8_t> data = r->ReadView(sector, sectorCount, m_scratch);
    if (data.empty()) {
        r->CountScannerFailure();
        return false;
    }
    std::memcpy(m_work.data(), data.data(), size_t(sectorCount) * bps);
    return true;
}

int CJpgScanner::Verify(uint64_t sectorNumber, std::span<const uint8_t>) {
    CSectorReader* r = Reader();
    // The fixed clear length and reload position assume sectors of 512 bytes and more; above
    // 16 KiB the reload position would no longer move the search forward.
    if (!r || r->SectorSize() < 512 || r->SectorSize() > kMaxSectorSize) return 0;
    uint32_t bps = r->SectorSize();
    m_work.assign(size_t(kWorkSectors) * bps, 0);
    m_haveBuffer = true;
    if (!ReadInto(sectorNumber, 3)) {
        Release();
        return 0;
    }
    m_firstFour = Be32(m_work.data());
    uint64_t next = uint64_t(Be16(m_work.data() + kFirstSegmentLength)) + kFirstSegmentLength;
    if (next >= kMaxSegmentDistance + 1 || !ReadInto(sectorNumber + next / bps, 3)) {
        Release();
        return 0;
    }
    if (m_work[next % bps] == 0xFF) return 1;
    Release();
    return 0;
}

uint64_t CJpgScanner::FindFileSize(uint64_t sectorNumber, std::span<const uint8_t> sector) {
    CSectorReader* r = Reader();
    if (!r || r->SectorSize() < 512 || r->SectorSize() > kMaxSectorSize) return 0;
    if (!m_haveBuffer && Verify(sectorNumber, sector) != 1) return 0;
    uint32_t bps = r->SectorSize();
    if (!ReadInto(sectorNumber, 3)) {
        Release();
        return 0;
    }
    uint64_t next = uint64_t(Be16(m_work.data() + kFirstSegmentLength)) + kFirstSegmentLength;
    if (next > kMaxSegmentDistance) {
        Release();
        return 0;
    }
    // Segment walk: every position is a sector plus an offset below the sector size, so the
    // 16-bit reads at offset + 3 stay inside the three sectors read.
    uint64_t current = sectorNumber + next / bps;
    uint32_t offset = uint32_t(next % bps);
    std::memset(m_work.data(), 0, kClearBytes);
    if (!ReadInto(current, 3)) {
        Release();
        return 0;
    }
    uint16_t marker = Be16(m_work.data() + offset);
    for (int hops = 0;;) {
        if (marker == kStartOfScan) {
            uint64_t size = ScanForEnd(sectorNumber, current, offset);
            Release();
            return size;
        }
        // The segment's length counts itself, not its marker.
        uint64_t distance = uint64_t(offset) + kMarkerSize + Be16(m_work.data() + offset + kMarkerSize);
        if (distance > kMaxSegmentDistance) break;
        current += distance / bps;
        offset = uint32_t(distance % bps);
        if (!ReadInto(current, 3) || m_work[offset] != 0xFF) break;
        marker = Be16(m_work.data() + offset);
        if (++hops >= kMaxHops) break;
    }
    Release();
    return 0;
}

// Searches the compressed data from the start-of-scan marker at (current, position) for the
// end-of-image marker. A sector that opens with the same four bytes as this file is taken as
// the next JPEG of the same camera: the file ends one byte past that boundary.
uint64_t CJpgScanner::ScanForEnd(uint64_t startSector, uint64_t current, uint32_t position) {
    CSectorReader* r = Reader();
    uint32_t bps = r->SectorSize();
    uint64_t endSector = r->EndSector();
    // The search looks at the sectors where they are (usually the loop's read-ahead): a view
    // holds all of them, the part past the source's end zero, so nothing needs clearing or copying.
    const uint8_t* buf = nullptr;
    auto load = [&]() {
        // A failed read skips ten sectors and starts again at their first byte.
        for (;;) {
            if (current >= endSector || (current - startSector) * bps >= kMaxFileSize) return false;
            std::span<const uint8_t> data = r->ReadView(current, kWorkSectors, m_scratch);
            if (!data.empty()) {
                buf = data.data();
                return true;
            }
            r->CountScannerFailure();
            current += kSkipAfterFailedRead;
            position = 0;
        }
    };
    if (!load()) return 0;
    uint64_t running = 0;
    for (;;) {
        if (running >= kMaxFileSize) return 0;
        uint64_t base = (current - startSector) * bps;
        // A byte other than 0xFF cannot open the end marker: jump to the next 0xFF, but never
        // past the last position before a sector boundary or the reload point, where the walk
        // has something else to do. The running size only grows, so checking it at the landing
        // position gives up exactly when the byte-wise walk would.
        if (buf[position] != 0xFF) {
            uint32_t lastPlain = std::min<uint32_t>((position / bps + 1) * bps - 1, kReloadPosition - 1);
            if (lastPlain > position) {
                const void* ff = std::memchr(buf + position + 1, 0xFF, lastPlain - position);
                position = ff ? uint32_t(static_cast<const uint8_t*>(ff) - buf) : lastPlain;
                running = base + position + 1;
                continue;
            }
        }
        if (Be16(buf + position) == kEndOfImage) return base + position + 2;
        ++position;
        if (position % bps == 0 && Be32(buf + position) == m_firstFour) return base + position + 1;
        if (position >= kReloadPosition) {
            current += position / bps;
            position %= bps;
            if (!load()) return 0;
        }
        running = (current - startSector) * bps + position + 1;
    }
}

} // namespace kestrin
