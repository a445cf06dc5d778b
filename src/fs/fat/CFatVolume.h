#pragma once
// One FAT12, FAT16, FAT32 or exFAT volume of the current media: its geometry, its first FAT
// (cached in memory block by block as it is used) and cluster reads. The scan walkers and the
// content read-back of both FAT engines work through it.
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "storage/CPhysicalDisk.h"

namespace kestrin {

// Geometry in absolute byte offsets on the media, so that volumes whose own sector size differs
// from the media's read correctly.
struct FatGeometry {
    FsKind fsKind = FsKind::None;
    uint32_t mediaSectorSize = 0;
    uint64_t volumeEnd = 0;      // exclusive; the media's end when the range is unknown
    uint64_t fatStart = 0;       // first FAT
    uint64_t fatBytes = 0;       // bytes of the first FAT that are used (clamped to the clusters)
    uint64_t rootRegion = 0;     // FAT12/16: the fixed root region
    uint64_t rootBytes = 0;      // FAT12/16: its size (0 in a geometry made elsewhere: up to dataStart)
    uint64_t dataStart = 0;      // cluster 2
    uint32_t clusterBytes = 0;
    uint32_t highestCluster = 0; // highest valid cluster number (cluster count + 1)
    uint32_t rootCluster = 0;    // FAT32: 2; exFAT: from the boot sector; FAT12/16: 1 (no cluster)
};

// The bytes a FAT of `entries` entries takes (FAT12: two entries in three bytes), and the entries
// `bytes` of FAT hold.
uint64_t FatBytesForEntries(FsKind kind, uint64_t entries);
uint64_t FatEntriesInBytes(FsKind kind, uint64_t bytes);

// The FAT12/16 root region holds the boot sector's root entry count of 32-byte entries, rounded up
// to whole sectors; the data area starts right after it. A record that carries no count (one made
// before the count was kept) is taken to hold the 512 entries formatters write.
constexpr uint32_t kFat16DefaultRootEntries = 512;
constexpr uint32_t kFatDirEntryBytes = 32;
// The FAT12/16 root region has no cluster; it goes by 1, FAT16's code.
constexpr uint32_t kFat16RootId = 1;

// Upper bound on one folder's size: FAT and exFAT folders hold at most 65,536 entries of 32
// bytes on FAT and 256 MiB on exFAT; anything longer is a broken chain or a hostile size.
constexpr uint64_t kFatMaxFolderBytes = 65536ull * 32;
constexpr uint64_t kExFatMaxFolderBytes = 256ull << 20;

// A run of consecutive clusters.
struct ClusterRun {
    uint32_t first = 0;
    uint32_t count = 0;
};

class CFatVolume {
public:
    explicit CFatVolume(CPhysicalDisk& media) : m_media(media) {}

    // Reads the geometry of the media's selected volume: FAT12/16/32 from the partition record
    // when it was filled from a checked boot sector, else from the boot sector itself; exFAT
    // always from the boot sector (the record has no root cluster), or its backup copy.
    bool Open(FsKind fsKind);
    // For tests and the fuzzers: a geometry made elsewhere.
    void SetGeometry(const FatGeometry& g);
    const FatGeometry& Geometry() const { return m_g; }
    CPhysicalDisk& Media() { return m_media; }

    // The FAT entry of `cluster` (FAT12 and FAT16 entries as 12- and 16-bit values). Clusters
    // whose entry lies past the FAT's used bytes, and FAT blocks that cannot be read, give 0.
    uint32_t Entry(uint32_t cluster);
    // The chain from `first`: at most `maxClusters` clusters, cut where it leaves the volume or
    // comes back to a cluster it already holds (loops of any length). Cluster 1 and clusters
    // outside the volume give an empty chain.
    std::vector<uint32_t> FollowChain(uint32_t first, size_t maxClusters);

    bool IsDataCluster(uint32_t c) const { return c >= 2 && c <= m_g.highestCluster; }
    // The last valid cluster that lies inside the volume (1 when none does): where searches that
    // walk the cluster numbers upward stop.
    uint32_t LastClusterInVolume() const;
    uint64_t ClusterOffset(uint32_t c) const { return m_g.dataStart + uint64_t(c - 2) * m_g.clusterBytes; }

    // Reads `len` bytes at absolute byte `offset`. Failed or missing bytes read as zeros; returns
    // false when the read failed.
    bool ReadBytes(uint64_t offset, uint8_t* out, size_t len);
    // Reads the clusters of `clusters` in order, merging consecutive ones into one read of at most
    // `maxReadBytes`, and hands each cluster to `onCluster` (index in the list, bytes; a failed
    // read gives zeros) until it returns false or a read finds the source gone.
    void ReadClusters(std::span<const uint32_t> clusters, size_t maxReadBytes,
                      const std::function<bool(size_t, std::span<const uint8_t>)>& onCluster);

    // Turns a cluster list into runs of consecutive clusters.
    static std::vector<ClusterRun> ToRuns(std::span<const uint32_t> clusters);

private:
    // True when `next` ends a chain that is at `current`: a self-reference, on FAT16 0, 1 and
    // 0xFFF0-0xFFFF, on FAT12 0, 1 and 0xFF7-0xFFF, and, masked to 28 bits, 0, 1 and 0x0FFFFFF0
    // upwards.
    bool EndsChain(uint32_t current, uint32_t next) const;
    bool OpenFat(FsKind fsKind);
    bool OpenExFat();
    void FinishGeometry();
    // The FAT's bytes from `at` (loading its block on first use): to the end of that block.
    const uint8_t* FatBytesAt(uint64_t at);

    static constexpr size_t kFatBlockBytes = 256 * 1024;
    CPhysicalDisk& m_media;
    FatGeometry m_g;
    std::vector<std::vector<uint8_t>> m_fatBlocks; // loaded on first use; empty = not loaded
    std::vector<uint8_t> m_readBuf;
};

} // namespace kestrin
