#include "fs/fat/FatEngine.h"

#include <algorithm>
#include <map>
#include <vector>

#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "scan/ScanContext.h"
#include "storage/CPhysicalDisk.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

// Content is read and handed on in pieces of this size.
constexpr size_t kContentReadBytes = 4 << 20;

void Prepend(ScanEntry* folder, ScanEntry* e) {
    e->parent = folder;
    e->nextSibling = folder->firstChild;
    folder->firstChild = e;
}

} // namespace

void FatWalkVolume(CPhysicalDisk& media, FatWalkMode mode, ScanContext& ctx) {
    CFatVolume vol(media);
    if (!vol.Open(media.GetFsKind())) return;
    CFatWalker walker(vol, mode, &ctx);
    walker.ReadFolderTree(walker.Root());
    // A stopped walk still shows what it found.
    if (ctx.top) AttachVolume(ctx.top, walker.TakeRoot());
}

void FatScanVolume(CPhysicalDisk& media, int mode, ScanContext& ctx) {
    FatWalkVolume(media, mode == kFatWalkBare ? kFatWalkBare : kFatWalkFull, ctx);
}

void FatRebuildFolders(CPhysicalDisk& media, std::span<const uint32_t> folderClusters, ScanContext& ctx) {
    CFatVolume vol(media);
    if (!vol.Open(media.GetFsKind())) return;
    const FatGeometry& g = vol.Geometry();
    CFatWalker walker(vol, kFatWalkBare, &ctx);
    ScanEntry* root = walker.Root();
    if (!root) return;
    const uint32_t code = g.fsKind == kFsFat16 ? 1 : 2;

    // First the "." and ".." of every candidate, to know which folders hang inside others.
    struct Candidate {
        uint32_t parent;
        uint16_t created, accessed;
    };
    std::map<uint32_t, Candidate> found;
    std::vector<uint8_t> first(g.clusterBytes);
    for (uint32_t c : folderClusters) {
        if (!vol.IsDataCluster(c) || found.count(c) || first.empty()) continue;
        vol.ReadBytes(vol.ClusterOffset(c), first.data(), first.size());
        Bytes b(first);
        if (!MatchAt(b, 0, ".          ", 11) || !MatchAt(b, 32, "..         ", 11)) continue;
        uint32_t up = uint32_t(Le16(first.data() + 32 + 0x14)) << 16 | Le16(first.data() + 32 + 0x1A);
        found[c] = {up == 0 ? code : up, Le16(first.data() + 0x10), Le16(first.data() + 0x12)};
    }
    ScanEntry* lost = LostFolderOf(root);
    std::map<uint32_t, ScanEntry*> placeholders;
    // Tops of the forest first (their parent is not a candidate), then whatever is still unread
    // (folders in a cycle of ".." references).
    for (int pass = 0; pass < 2; ++pass) {
        for (const auto& [cluster, cand] : found) {
            if (pass == 0 && found.count(cand.parent)) continue;
            if (walker.FindFolder(cluster)) continue;
            ScanEntry* folder = NewScanEntry(RecordName(cluster), kNodeFolder, cluster, cand.parent);
            if (!folder) return;
            folder->createdDate = cand.created;
            folder->modifiedDate = cand.accessed;
            if (cand.parent == code || !lost) {
                Prepend(root, folder);
            } else {
                ScanEntry*& holder = placeholders[cand.parent];
                if (!holder) {
                    holder = NewScanEntry(RecordName(cand.parent), kNodeFolder, cand.parent, lost->recordId);
                    if (!holder) {
                        FreeScanEntries(folder);
                        return;
                    }
                    Prepend(lost, holder);
                }
                Prepend(holder, folder);
            }
            if (walker.ReadFolderTree(folder)) break;
        }
    }
    if (ctx.top) AttachVolume(ctx.top, walker.TakeRoot());
}

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
            buf.resize(size_t(inside));
            if (!vol.ReadBytes(at, buf.data(), buf.size())) r.unreadable += inside;
            if (!sink(buf.data(), buf.size())) return r;
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

ContentResult FatWriteContent(CFatVolume& vol, const CNode& node, const ContentSink& sink) {
    const FatGeometry& g = vol.Geometry();
    if (node.size == 0) return {true, 0, 0, 0};
    if (node.IsFolder() || !vol.IsDataCluster(node.recordId) || g.clusterBytes == 0) return {};
    const uint64_t needed = (node.size + g.clusterBytes - 1) / g.clusterBytes;
    std::vector<ClusterRun> runs;
    if (!node.IsDeleted()) {
        runs = CFatVolume::ToRuns(vol.FollowChain(node.recordId, size_t(needed)));
    } else {
        // A deleted file's chain has been zeroed: take its first cluster and then every cluster
        // after it that is free now, passing over clusters in use by other files (non-zero FAT
        // entries). A file written in pieces around files that still exist comes back whole;
        // one written contiguously reads the same as before.
        uint64_t taken = 0;
        const uint32_t last = std::max(vol.LastClusterInVolume(), node.recordId);
        for (uint32_t c = node.recordId; taken < needed && c <= last; ++c) {
            if (c != node.recordId && vol.Entry(c) != 0) continue;
            if (!runs.empty() && runs.back().first + runs.back().count == c)
                ++runs.back().count;
            else
                runs.push_back({c, 1});
            ++taken;
        }
    }
    return WriteClusterRuns(vol, runs, node.size, sink);
}

ContentResult FatWriteContent(CPhysicalDisk& media, const CNode& node, const ContentSink& sink) {
    CFatVolume vol(media);
    if (!vol.Open(media.GetFsKind())) return {};
    return FatWriteContent(vol, node, sink);
}

} // namespace kestrin
