#pragma once
// Common ground of the scanner family: the header compare, a windowed reader over the candidate
// file (offsets counted from the first byte of the hit sector), and the usual Verify /
// FindFileSize split in which Verify walks the structure once and FindFileSize hands out the
// size it found. The three embedded-image fields are kept here for the camera raw members.
#include <cstdint>
#include <span>
#include <vector>

#include "carve/CScanner.h"

namespace kestrin {

class CFamilyScanner : public CScanner {
public:
    // Bytes the window holds; one read fills it. Callers ask for at most kMaxSpan bytes at once.
    static constexpr uint32_t kWindowBytes = 256 * 1024;
    static constexpr uint32_t kMaxSpan = 64 * 1024;

    bool IsHeader(std::span<const uint8_t> sector) override { return CompareHeader(sector); }
    // Walks the candidate; accepted when the walk found a size.
    int Verify(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
    uint64_t FindFileSize(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
    uint64_t GetEmbeddedSize() override { return m_embeddedSize; }
    uint64_t GetEmbeddedSector() override { return m_embeddedSector; }
    uint32_t GetEmbeddedOffset() override { return m_embeddedOffset; }
    std::u16string_view GetEmbeddedExtension() override { return u".jpg"; }

protected:
    // The structure walk: the file's size in bytes from the first byte of the hit sector, or 0.
    // `sector` is the hit sector itself; everything beyond it is read through At().
    // Members whose rules are given field by field override Verify and FindFileSize instead.
    virtual uint64_t Walk(std::span<const uint8_t> /*sector*/) { return 0; }
    // Sets up the reader state for a candidate at `sectorNumber`; false without a usable reader.
    bool Begin(uint64_t sectorNumber);

    // Exactly `length` bytes (at most kMaxSpan) at file offset `offset`; empty when they are not
    // all on the media or the read failed.
    std::span<const uint8_t> At(uint64_t offset, uint32_t length);
    // Up to `length` bytes at `offset` (fewer at the media's end); empty when none.
    std::span<const uint8_t> Upto(uint64_t offset, uint32_t length);
    // Bytes the media holds from the hit sector on.
    uint64_t Available() const { return m_available; }
    uint32_t SectorSize() const { return m_sectorSize; }
    uint64_t HitSector() const { return m_hitSector; }
    // True when the scan is to stop: a long walk gives up its candidate then.
    bool StopRequested() const;
    // Offset of the first occurrence of `needle` in [from, from + limit), or UINT64_MAX.
    uint64_t Find(uint64_t from, uint64_t limit, const char* needle, uint32_t needleLength);

    // Records an embedded image at file offset `offset`, `length` bytes long.
    void SetEmbedded(uint64_t offset, uint64_t length);
    void ClearEmbedded() { m_embeddedSize = m_embeddedSector = 0; m_embeddedOffset = 0; }

private:
    bool Load(uint64_t offset);

    // The window's bytes: in the loop's read-ahead, or read into m_window.
    std::span<const uint8_t> m_view;
    std::vector<uint8_t> m_window;
    uint64_t m_windowStart = 0; // file offset of m_window[0]
    uint32_t m_windowValid = 0; // bytes of m_window that hold file data
    uint64_t m_hitSector = 0;
    uint64_t m_available = 0;
    uint32_t m_sectorSize = 0;
    bool m_haveResult = false;
    uint64_t m_resultSector = 0;
    uint64_t m_size = 0;
    uint64_t m_embeddedSize = 0;
    uint64_t m_embeddedSector = 0;
    uint32_t m_embeddedOffset = 0;
};

} // namespace kestrin
