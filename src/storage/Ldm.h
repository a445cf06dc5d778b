#pragma once
// The dynamic-disk (LDM) database: the private header, the table of contents, the VMDB and its
// VBLK records (volumes, components, partitions, disks), assembled into volumes. The partition
// table reader recognises a dynamic disk and hands it here; its volumes are listed like
// partitions.
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "storage/ByteSource.h"
#include "storage/CPhysicalDisk.h"

namespace kestrin {

enum class LdmLayout : uint8_t { Simple, Spanned, Striped, Mirrored, Raid5 };

// One piece of a volume on this disk: absolute sectors.
struct LdmExtent {
    uint64_t startSector = 0;
    uint64_t sectors = 0;
    uint64_t volumeOffset = 0; // sectors into the volume (spanned) or into the column (striped)
    uint32_t column = 0;
};

struct LdmVolume {
    std::string name;
    LdmLayout layout = LdmLayout::Simple;
    uint64_t stripeSectors = 0; // striped: the chunk size
    uint32_t columns = 0;
    std::vector<LdmExtent> extents; // in volume order; for a mirror those of its first copy
    bool complete = false;          // every extent lies on this disk
};

// Where a GPT dynamic disk keeps its areas, from the partition entries (absolute sectors).
struct LdmGptAreas {
    uint64_t metadataStart = 0;
    uint64_t metadataSectors = 0;
    uint64_t dataStart = 0;
};

// Reads the database whose configuration area starts at `configStart` (absolute sectors, `configSectors`
// long), with partition offsets counted from `dataStart`, and assembles the volumes. `diskGuid`
// (the private header's text, may be empty) tells which disk record is this disk. Bounded: at most
// 65,536 records of at most 64 fragments each, only inside the configuration area.
std::vector<LdmVolume> ReadLdmVolumes(CStorageMedia& media, uint64_t configStart, uint64_t configSectors,
                                      uint64_t dataStart, const std::string& diskGuid);

// The volumes of a dynamic disk, listed: every readable volume (simple, spanned, striped, a
// mirror's first copy; all pieces on this disk) becomes a record in disk.SecondPartitions() at
// its first piece's sector, with the file system its own sector 0 shows and its sector count as
// length (a GPT disk: its last sector, as GPT entries keep it). Each is also kept in
// disk.AssembledVolumes() with its name; those that are not one range of the disk carry the
// means to open them as a source of their own. True when a volume was listed.
//
// An MBR disk: `privhead` is its private header as read from the disk (checked by the caller).
bool ReadMbrDynamicDisk(CPhysicalDisk& disk, std::span<const uint8_t> privhead);
// A GPT disk: the areas its partition entries give; the private header is read from the last
// sector of the metadata partition.
bool ReadGptDynamicDisk(CPhysicalDisk& disk, const LdmGptAreas& areas);

// A volume made of several ranges of one source, read as one: the spanned, striped or mirrored
// (first copy) volume of a dynamic disk. Borrows `base`, which must outlive it.
class ExtentSource final : public ByteSource {
public:
    ExtentSource(ByteSource& base, const LdmVolume& volume, uint32_t sectorSize);
    long long ReadAt(void* buf, size_t len, uint64_t offset) override;
    uint64_t Size() const override { return m_size; }
    uint32_t LastError() const override { return m_base.LastError(); }
    // Pieces start and end on sector bounds, so an aligned read stays aligned on the base.
    bool NeedsAlignment() const override { return m_base.NeedsAlignment(); }

    struct Piece {
        uint64_t volumeByte, baseByte, bytes;
    };

private:
    long long ReadPieces(const std::vector<Piece>& pieces, uint8_t* out, size_t len, uint64_t offset);
    ByteSource& m_base;
    std::vector<Piece> m_pieces;               // sorted by volumeByte, no gaps
    std::vector<std::vector<Piece>> m_columns; // striped: each column's pieces, by byte in the column
    uint64_t m_chunk = 0;                      // striped: bytes per chunk
    uint64_t m_size = 0;
};

} // namespace kestrin
