#include "fs/fat/ClusterContent.h"

#include <algorithm>
#include <span>

#include "fs/CNode.h"

namespace kestrin {

namespace {

// Content is read and handed on in pieces of this size.
constexpr size_t kContentReadBytes = 4 << 20;


// Writes `size` bytes from the cluster runs, stopping where the runs or the volume end.
ContentResult WriteClusterRuns(CFatVolume& vol, std::span<const ClusterRun> runs, uint64_t size,
                               const ContentSink& sink) {
    ContentResult r;
    const FatGeometry& g = vol.Geometry();
    uint64_t left = size;
    std::vector<uint8_t> buf;
    for (const ClusterRun& run : runs) {
        uint64_t at = vol.ClusterOffset(run.first);
        uint64_t runLeft = uint64_t(run.count) * g.clusterBytes;
        while (runLeft > 0 && left > 0) {
            uint64_t n = std::min<uint64_t>({runLeft, left, kContentReadBytes});
            if (at >= g.volumeEnd) {
                r.beyondVolume = left;
                return r;
            }
            uint64_t inside = std::min<uint64_t>(n, g.volumeEnd - at);
            // Copied from file to file by the kernel where it can, else read and written.
            ContentSink::Copy copied = CopySourceRun(vol.Media(), sink, at, size_t(inside));
            if (copied == ContentSink::Copy::Stop) return r;
            if (copied == ContentSink::Copy::NotDone) {
                buf.resize(size_t(inside));
                if (!vol.ReadBytes(at, buf.data(), buf.size())) r.unreadable += inside;
                if (!sink(buf.data(), buf.size())) return r;
            }
            r.written += inside;
            left -= inside;
            if (inside < n) {
                r.beyondVolume = left;
                return r;
            }
            at += inside;
            runLeft -= inside;
        }
        if (left == 0) break;
    }
    r.ok = left == 0;
    return r;
}

} // namespace

ContentResult WriteFileClusters(CFatVolume& vol, const CNode& node, const ContentSink& sink,
                                const FileRunsFn& runsOf) {
    const FatGeometry& g = vol.Geometry();
    if (node.size == 0) return {true, 0, 0, 0};
    if (node.IsFolder() || !vol.IsDataCluster(node.recordId) || g.clusterBytes == 0) return {};
    const uint64_t needed = (node.size + g.clusterBytes - 1) / g.clusterBytes;
    return WriteClusterRuns(vol, runsOf(needed), node.size, sink);
}

} // namespace kestrin
