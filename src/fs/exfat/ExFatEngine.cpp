#include "fs/exfat/ExFatEngine.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <vector>

#include "fs/CNode.h"
#include "fs/Condition.h"
#include "fs/fat/FatEngine.h"
#include "fs/VolumeTree.h"
#include "fs/exfat/CExFatWalker.h"
#include "fs/exfat/ExFatLayout.h"
#include "fs/fat/CFatVolume.h"
#include "fs/fat/ClusterContent.h"
#include "job/ScanContext.h"
#include "storage/CPhysicalDisk.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

using namespace layout;

// Root-folder clusters per read while looking for the bitmap entry.
constexpr size_t kRootReadBytes = 1 << 20;

// The allocation bitmap, located through the root folder's bitmap entry and read cluster by
// cluster as bits are asked for.
class AllocationBitmap {
public:
    explicit AllocationBitmap(CFatVolume& vol) : m_vol(vol) {}

    // Finds the first bitmap entry of the root folder; false when there is none.
    bool Locate() {
        const FatGeometry& g = m_vol.Geometry();
        if (g.clusterBytes == 0) return false;
        size_t maxClusters = size_t(std::max<uint64_t>(1, kExFatMaxFolderBytes / g.clusterBytes));
        std::vector<uint32_t> root = m_vol.FollowChain(g.rootCluster, maxClusters);
        uint32_t first = 0;
        uint64_t length = 0;
        m_vol.ReadClusters(root, kRootReadBytes, [&](size_t, std::span<const uint8_t> data) {
            for (size_t at = 0; at + exfat_dir::kEntryBytes <= data.size(); at += exfat_dir::kEntryBytes) {
                const uint8_t* e = data.data() + at;
                if (exfat_dir::EntryType::At(e) != exfat_dir::kTypeBitmap) continue;
                first = exfat_bitmap::FirstCluster::At(e);
                length = exfat_bitmap::DataLength::At(e);
                return false;
            }
            return true;
        });
        if (!m_vol.IsDataCluster(first)) return false;
        // One bit per cluster: never more than the cluster count needs.
        uint64_t needed = (uint64_t(g.highestCluster) - 1 + 7) / 8;
        length = std::min(length, needed);
        uint64_t clusters = (length + g.clusterBytes - 1) / g.clusterBytes;
        m_clusters = m_vol.FollowChain(first, size_t(clusters));
        // The bitmap is written contiguously; when its chain is not in the FAT, take the run.
        if (m_clusters.size() < clusters) {
            m_clusters.clear();
            for (uint64_t i = 0; i < clusters && first + i <= g.highestCluster; ++i)
                m_clusters.push_back(uint32_t(first + i));
        }
        return !m_clusters.empty();
    }

    // True when the bitmap marks `c` as in use (and for clusters it cannot tell about).
    bool InUse(uint32_t c) {
        const FatGeometry& g = m_vol.Geometry();
        uint64_t byte = uint64_t(c - 2) / 8;
        uint64_t index = byte / g.clusterBytes;
        if (c < 2 || index >= m_clusters.size()) return true;
        std::vector<uint8_t>& data = m_loaded[index];
        if (data.empty()) {
            data.resize(g.clusterBytes);
            m_vol.ReadBytes(m_vol.ClusterOffset(m_clusters[size_t(index)]), data.data(), data.size());
        }
        return data[size_t(byte % g.clusterBytes)] >> ((c - 2) % 8) & 1;
    }

    // Reads the whole bitmap into `map` (bit n for cluster n + 2), no further than the clusters
    // inside the volume. False when nothing could be read.
    bool LoadInto(CClusterMap& map) {
        const FatGeometry& g = m_vol.Geometry();
        const uint32_t last = m_vol.LastClusterInVolume();
        if (last < 2 || m_clusters.empty()) return false;
        const uint64_t bits = std::min<uint64_t>(uint64_t(last) - 1, uint64_t(m_clusters.size()) * g.clusterBytes * 8);
        if (!map.Reset(bits)) return false;
        std::vector<uint8_t> bytes(size_t((bits + 7) / 8), 0);
        bool ok = true;
        m_vol.ReadClusters(m_clusters, kRootReadBytes, [&](size_t index, std::span<const uint8_t> data) {
            const uint64_t at = uint64_t(index) * g.clusterBytes;
            if (at >= bytes.size()) return false;
            std::memcpy(bytes.data() + at, data.data(), size_t(std::min<uint64_t>(data.size(), bytes.size() - at)));
            return true;
        });
        if (m_vol.Media().DeviceGone()) ok = false;
        map.TakeBits(bytes);
        return ok;
    }

private:
    CFatVolume& m_vol;
    std::vector<uint32_t> m_clusters;
    std::map<uint64_t, std::vector<uint8_t>> m_loaded;
};

} // namespace

Outcome ExFatScanVolume(CPhysicalDisk& media, int /*mode*/, ScanContext& ctx) {
    WalkWatch watch(media);
    CFatVolume vol(media);
    if (!vol.Open(FsKind::ExFat)) return watch.Finish(ctx, true);
    CExFatWalker walker(vol, &ctx);
    walker.ReadFolderTree(walker.Root());
    // A stopped walk still shows what it found.
    if (ctx.top) AttachVolume(ctx.top, walker.TakeRoot());
    return watch.Finish(ctx);
}

namespace {

// The valid data length of a file: read again from its stream extension entry, where the walk
// noted it (location and startOffset), when that entry still names the file's first cluster and
// size; the whole size otherwise.
uint64_t ValidLength(CFatVolume& vol, const CNode& node) {
    const uint32_t sector = vol.Geometry().mediaSectorSize ? vol.Geometry().mediaSectorSize : 512;
    if (node.size == 0 || node.startOffset >= sector || node.location > (UINT64_MAX - sector) / sector)
        return node.size;
    uint8_t e[exfat_dir::kEntryBytes];
    if (!vol.ReadBytes(node.location * sector + node.startOffset, e, sizeof e)) return node.size;
    const uint8_t type = exfat_dir::EntryType::At(e);
    if ((type != exfat_dir::kTypeStream && type != exfat_dir::Deleted(exfat_dir::kTypeStream)) ||
        exfat_stream::FirstCluster::At(e) != node.recordId || exfat_stream::DataLength::At(e) != node.size)
        return node.size;
    return std::min<uint64_t>(exfat_stream::ValidDataLength::At(e), node.size);
}

} // namespace

ContentResult ExFatWriteContent(CFatVolume& vol, const CNode& node, const ContentSink& sink) {
    // Bytes past the valid data length read as zeros, whatever the clusters hold.
    const uint64_t valid = ValidLength(vol, node);
    uint64_t at = 0;
    std::vector<uint8_t> zeros;
    const ContentSink clipped = [&](const uint8_t* p, size_t n) {
        const uint64_t start = at;
        at += n;
        if (start + n <= valid) return sink(p, n);
        const size_t keep = start < valid ? size_t(valid - start) : 0;
        zeros.assign(p, p + n);
        std::fill(zeros.begin() + ptrdiff_t(keep), zeros.end(), uint8_t(0));
        return sink(zeros.data(), zeros.size());
    };
    return WriteFileClusters(vol, node, valid < node.size ? clipped : sink, [&](uint64_t needed) -> std::vector<ClusterRun> {
        if (!node.IsDeleted()) {
            if (node.flags & kNodeFatChain) return CFatVolume::ToRuns(vol.FollowChain(node.recordId, size_t(needed)));
            const uint64_t n = std::min<uint64_t>(needed, uint64_t(vol.Geometry().highestCluster) - node.recordId + 1);
            return {{node.recordId, uint32_t(n)}};
        }
        // A deleted file's clusters are free in the bitmap (and its FAT chain, if it had one, is
        // cleared): what the bitmap shows in use belongs to other files. Without a bitmap every
        // cluster counts as free.
        AllocationBitmap bitmap(vol);
        const bool haveBitmap = bitmap.Locate();
        return RunsOverFreeClusters(vol, node.recordId, needed,
                                    [&](uint32_t c) { return haveBitmap && bitmap.InUse(c); });
    });
}

ContentResult ExFatWriteContent(CPhysicalDisk& media, const CNode& node, const ContentSink& sink) {
    CFatVolume vol(media);
    if (!vol.Open(FsKind::ExFat)) return {};
    return ExFatWriteContent(vol, node, sink);
}

bool ExFatJudgeConditions(CPhysicalDisk& media, CNode& volumeRoot, const std::function<bool()>& stop) {
    CFatVolume vol(media);
    if (!vol.Open(FsKind::ExFat)) return false;
    AllocationBitmap bitmap(vol);
    CClusterMap map;
    if (!bitmap.Locate() || !bitmap.LoadInto(map)) return false;
    bool stopped = false;
    // With or without a FAT chain, a deleted file's chain is gone: its clusters are taken as
    // contiguous from the first.
    JudgeClusterFiles(volumeRoot, map, vol.Geometry().clusterBytes, -2, [&](uint32_t c) { return vol.IsDataCluster(c); },
                      stop, stopped);
    return !stopped;
}

} // namespace kestrin
