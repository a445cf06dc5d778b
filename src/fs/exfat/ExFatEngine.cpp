#include "fs/exfat/ExFatEngine.h"

#include <algorithm>
#include <map>
#include <vector>

#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "fs/exfat/CExFatWalker.h"
#include "fs/fat/CFatVolume.h"
#include "fs/fat/FatEngine.h"
#include "job/ScanContext.h"
#include "storage/CPhysicalDisk.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

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
        m_vol.ReadClusters(root, 1 << 20, [&](size_t, std::span<const uint8_t> data, bool) {
            for (size_t at = 0; at + 32 <= data.size(); at += 32) {
                if (data[at] != 0x81) continue;
                first = Le32(data.data() + at + 20);
                length = Le64(data.data() + at + 24);
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

private:
    CFatVolume& m_vol;
    std::vector<uint32_t> m_clusters;
    std::map<uint64_t, std::vector<uint8_t>> m_loaded;
};

} // namespace

Outcome ExFatScanVolume(CPhysicalDisk& media, int /*mode*/, ScanContext& ctx) {
    WalkWatch watch(media);
    CFatVolume vol(media);
    if (!vol.Open(kFsExFat)) return watch.Finish(ctx, true);
    CExFatWalker walker(vol, &ctx);
    walker.ReadFolderTree(walker.Root());
    // A stopped walk still shows what it found.
    if (ctx.top) AttachVolume(ctx.top, walker.TakeRoot());
    return watch.Finish(ctx);
}

ContentResult ExFatWriteContent(CFatVolume& vol, const CNode& node, const ContentSink& sink) {
    const FatGeometry& g = vol.Geometry();
    if (node.size == 0) return {true, 0, 0, 0};
    if (node.IsFolder() || !vol.IsDataCluster(node.recordId) || g.clusterBytes == 0) return {};
    const uint64_t needed = (node.size + g.clusterBytes - 1) / g.clusterBytes;
    std::vector<ClusterRun> runs;
    if (!node.IsDeleted()) {
        if (node.flags & kNodeFatChain) {
            runs = CFatVolume::ToRuns(vol.FollowChain(node.recordId, size_t(needed)));
        } else {
            uint64_t n = std::min<uint64_t>(needed, uint64_t(g.highestCluster) - node.recordId + 1);
            runs.push_back({node.recordId, uint32_t(n)});
        }
    } else {
        // A deleted file's clusters are free in the bitmap (and its FAT chain, if it had one, is
        // cleared): take its first cluster and then every cluster after it that is free now,
        // passing over clusters that the bitmap shows in use by other files. A file written in
        // pieces around files that still exist comes back whole; a contiguous one reads as it was.
        AllocationBitmap bitmap(vol);
        bool haveBitmap = bitmap.Locate();
        uint64_t taken = 0;
        const uint64_t last = std::max(vol.LastClusterInVolume(), node.recordId);
        for (uint64_t c = node.recordId; taken < needed && c <= last; ++c) {
            if (c != node.recordId && haveBitmap && bitmap.InUse(uint32_t(c))) continue;
            if (!runs.empty() && uint64_t(runs.back().first) + runs.back().count == c)
                ++runs.back().count;
            else
                runs.push_back({uint32_t(c), 1});
            ++taken;
        }
    }
    return WriteClusterRuns(vol, runs, node.size, sink);
}

ContentResult ExFatWriteContent(CPhysicalDisk& media, const CNode& node, const ContentSink& sink) {
    CFatVolume vol(media);
    if (!vol.Open(kFsExFat)) return {};
    return ExFatWriteContent(vol, node, sink);
}

} // namespace kestrin
