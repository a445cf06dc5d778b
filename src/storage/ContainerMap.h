#pragma once
// Where a sparse virtual disk holds no data: the clusters, grains and blocks its allocation
// tables leave unallocated read as zeros, so a scan of the whole disk need not read them, as it
// skips the holes of a sparse raw image. The tables are read straight from the image file, the
// top level when the map is made and the second level as the walk reaches it (one table kept).
//
// Only what the tables say for certain counts as a hole: an entry that points anywhere, a table
// that cannot be read, a header this reader does not know fully, and the whole disk is data.
// A map is made for an image without a parent only (a parent fills what the child lacks).
#include <cstdint>
#include <memory>
#include <vector>

#include "storage/ByteSource.h"

namespace kestrin {

class ContainerMap {
public:
    // Null when `file` is not an image of `diskSize` bytes whose tables can be read with
    // certainty; then every byte counts as data.
    static std::unique_ptr<ContainerMap> Qcow(std::unique_ptr<ByteSource> file, uint64_t diskSize);
    static std::unique_ptr<ContainerMap> DynamicVhd(std::unique_ptr<ByteSource> file, uint64_t diskSize);
    // A VMDK disk is its extents in order: plain data (flat or raw extents), zeros, or hosted
    // sparse extent files (`file`). Null when the extents do not add up to `diskSize`.
    struct VmdkExtent {
        enum class Kind : uint8_t { Data, Zero, Sparse };
        Kind kind = Kind::Data;
        uint64_t bytes = 0;
        std::unique_ptr<ByteSource> file; // Sparse only
    };
    static std::unique_ptr<ContainerMap> Vmdk(std::vector<VmdkExtent> extents, uint64_t diskSize);

    ~ContainerMap();
    ContainerMap(const ContainerMap&) = delete;
    ContainerMap& operator=(const ContainerMap&) = delete;

    // As ByteSource::DataRun: the first run of data at or after `offset`, [start, end); start
    // UINT64_MAX when none follows. A run may end before the data does (the walk looks at a few
    // tables at a time); the next call goes on from there. Not thread-safe.
    void DataRun(uint64_t offset, uint64_t& start, uint64_t& end);
    // Bytes of the disk that lie in holes, counted over the whole map (reads every table).
    uint64_t HoleBytes();

    struct Table;

private:
    struct Piece {
        uint64_t start = 0, bytes = 0;
        VmdkExtent::Kind kind = VmdkExtent::Kind::Data;
        std::unique_ptr<Table> table; // Sparse only
    };
    ContainerMap() = default;
    // A map whose one table covers the whole disk (QCOW2, dynamic VHD).
    static std::unique_ptr<ContainerMap> WholeDisk(std::unique_ptr<Table> table, uint64_t diskSize);
    std::vector<Piece> m_pieces;
    uint64_t m_size = 0;
};

} // namespace kestrin
