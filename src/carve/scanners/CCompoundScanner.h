#pragma once
// Word, Excel and PowerPoint files in the compound file container: a fixed 8-byte magic, a size
// from the allocation tables, and a directory that must name the class's own stream.
#include <string_view>
#include <vector>

#include "carve/CScanner.h"

namespace kestrin {

class CCompoundScanner : public CScanner {
public:
    // How far from the hit the directory is looked for (20 MiB).
    static constexpr uint64_t kMaxDirectoryDistance = 0x1400000;
    static constexpr uint32_t kReadSectors = 63;
    // Sectors after a root entry in which the stream's entry must stand.
    static constexpr uint32_t kRootLookahead = 4;

    // The streams that prove the three types, in the order of the walk's result bits.
    static constexpr std::u16string_view kStreams[3] = {u"WordDocument", u"Workbook", u"PowerPoint Document"};

    explicit CCompoundScanner(int streamIndex) : m_streamIndex(streamIndex) {}

    // The container's own magic, whatever the record's header says.
    bool IsHeader(std::span<const uint8_t> sector) override;
    int Verify(uint64_t, std::span<const uint8_t>) override { return 1; }
    uint64_t FindFileSize(uint64_t sectorNumber, std::span<const uint8_t> sector) override;
    uint64_t GetEmbeddedSize() override { return 0; }
    uint64_t GetEmbeddedSector() override { return 0; }
    uint32_t GetEmbeddedOffset() override { return 0; }
    std::u16string_view GetEmbeddedExtension() override { return u".jpg"; }
    std::optional<std::pair<uint32_t, uint8_t>> HeaderKey() const override { return std::make_pair(0u, uint8_t(0xD0)); }
    // The directory walk: 20 MiB, plus the part of its last read that goes past them.
    uint64_t LookAheadSectors(uint32_t sectorSize) const override {
        return sectorSize ? kMaxDirectoryDistance / sectorSize + kReadSectors : 0;
    }

private:
    uint64_t SizeFromAllocationTable(std::span<const uint8_t> sector);
    bool DirectoryNamesStream(uint64_t sectorNumber);
    uint8_t WalkDirectory(uint64_t sectorNumber);

    int m_streamIndex;
    std::vector<uint8_t> m_buffer;
};

} // namespace kestrin
