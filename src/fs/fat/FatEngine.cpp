#include "fs/fat/FatEngine.h"

#include <algorithm>
#include <map>
#include <vector>

#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "job/ScanContext.h"
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

Outcome FatWalkVolume(CPhysicalDisk& media, FatWalkMode mode, ScanContext& ctx) {
    WalkWatch watch(media);
    CFatVolume vol(media);
    if (!vol.Open(media.GetFsKind())) return watch.Finish(ctx, true);
    CFatWalker walker(vol, mode, &ctx);
    walker.ReadFolderTree(walker.Root());
    // A stopped walk still shows what it found.
    if (ctx.top) AttachVolume(ctx.top, walker.TakeRoot());
    return watch.Finish(ctx);
}

Outcome FatScanVolume(CPhysicalDisk& media, int mode, ScanContext& ctx) {
    return FatWalkVolume(media, mode == kFatWalkBare ? kFatWalkBare : kFatWalkFull, ctx);
}

namespace {

// Clusters per read of the folder-cluster pass.
constexpr size_t kPassReadBytes = 4 << 20;
// Folder clusters the pass keeps at most; past this the volume is not a plausible old file system.
constexpr size_t kMaxFolderClusters = size_t(1) << 20;

bool IsFreeCluster(CFatVolume& vol, uint32_t c) {
    return (vol.Entry(c) & 0x0FFFFFFF) == 0;
}

// A folder of the previous file system as the pass pieces it together.
struct OldFolder {
    std::vector<uint32_t> clusters;
    bool headless = false; // its first cluster (with "." and "..") is gone
};

// Pieces the previous file system's folders together from the clusters that are free in the
// current FAT. After a quick format the old FAT is gone, so a folder's clusters are found by
// their contents: a cluster starting with "." and ".." begins a folder; a cluster of well-formed
// entries without them continues one. A folder whose last cluster is full goes on in the nearest
// such cluster after it that no other folder has taken (FAT hands out the next free cluster when
// a folder grows, so a folder that grew between its files is continued where it grew, and a
// contiguous folder in the very next cluster). Continuations with no open folder before them are
// folders whose first cluster was overwritten (the old root's later clusters, for one).
std::vector<OldFolder> PieceOldFolders(CFatVolume& vol, const std::map<uint32_t, bool>& starts, ScanContext* ctx) {
    const FatGeometry& g = vol.Geometry();
    std::vector<OldFolder> folders;
    if (g.clusterBytes == 0) return folders;
    const size_t maxPerFolder = size_t(std::max<uint64_t>(1, kFatMaxFolderBytes / g.clusterBytes));
    const uint32_t last = vol.LastClusterInVolume();
    if (last < 2) return folders;
    const size_t perRead =
        size_t(std::min<uint64_t>(std::max<size_t>(1, kPassReadBytes / g.clusterBytes), uint64_t(last) - 1));
    std::vector<uint8_t> buf(perRead * g.clusterBytes);
    std::map<uint32_t, size_t> openByLast; // last cluster of an open folder -> folder
    size_t kept = 0;
    for (uint64_t c = 2; c <= last && kept < kMaxFolderClusters;) {
        if (ctx) {
            if (ctx->MustStop(vol.Media())) break;
            ctx->Progress(int64_t(c - 2), int64_t(last - 1));
        }
        const size_t n = size_t(std::min<uint64_t>(perRead, uint64_t(last) - c + 1));
        vol.ReadBytes(vol.ClusterOffset(uint32_t(c)), buf.data(), n * g.clusterBytes);
        for (size_t i = 0; i < n && kept < kMaxFolderClusters; ++i) {
            const uint32_t cluster = uint32_t(c + i);
            std::span<const uint8_t> data(buf.data() + i * g.clusterBytes, g.clusterBytes);
            bool full = false;
            auto start = starts.find(cluster);
            if (start != starts.end()) {
                full = start->second;
            } else {
                FatFolderShape shape = FatFolderClusterShape(data, g.highestCluster);
                if (shape == FatFolderShape::kNone) continue;
                full = shape == FatFolderShape::kFull;
            }
            // Clusters in use now belong to the current file system, which its own FAT describes.
            if (!IsFreeCluster(vol, cluster)) continue;
            ++kept;
            size_t owner = folders.size();
            if (start == starts.end()) {
                // Continuation: the open folder that ends nearest before it.
                auto it = openByLast.lower_bound(cluster);
                if (it != openByLast.begin()) {
                    --it;
                    owner = it->second;
                    openByLast.erase(it);
                }
            }
            if (owner == folders.size()) folders.push_back({{}, start == starts.end()});
            folders[owner].clusters.push_back(cluster);
            if (full && folders[owner].clusters.size() < maxPerFolder) openByLast[cluster] = owner;
        }
        c += n;
    }
    return folders;
}

} // namespace

static void RebuildFolders(CPhysicalDisk& media, std::span<const uint32_t> folderClusters, ScanContext& ctx) {
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
    std::map<uint32_t, bool> startFull; // candidate -> its first cluster has no end mark
    std::vector<uint8_t> first(g.clusterBytes);
    for (uint32_t c : folderClusters) {
        if (!vol.IsDataCluster(c) || found.count(c) || first.empty()) continue;
        vol.ReadBytes(vol.ClusterOffset(c), first.data(), first.size());
        Bytes b(first);
        if (!MatchAt(b, 0, ".          ", 11) || !MatchAt(b, 32, "..         ", 11)) continue;
        // A "." naming another cluster belongs to a volume laid out otherwise (an image file kept
        // on this one, or a file system with other clusters): its numbers mean nothing here.
        if ((uint32_t(Le16(first.data() + 0x14)) << 16 | Le16(first.data() + 0x1A)) != c) continue;
        uint32_t up = uint32_t(Le16(first.data() + 32 + 0x14)) << 16 | Le16(first.data() + 32 + 0x1A);
        found[c] = {up == 0 ? code : up, Le16(first.data() + 0x10), Le16(first.data() + 0x12)};
        bool ends = false;
        for (size_t at = 64; at + 32 <= first.size() && !ends; at += 32) ends = first[at] == 0;
        startFull[c] = !ends;
    }
    std::vector<OldFolder> pieced = PieceOldFolders(vol, startFull, &ctx);
    if (ctx.MustStop(media)) return;
    std::vector<uint32_t> headless;
    for (OldFolder& f : pieced) {
        if (f.clusters.empty()) continue;
        const uint32_t head = f.clusters.front();
        if (f.headless) headless.push_back(head);
        walker.SetFolderClusters(head, std::move(f.clusters), f.headless);
    }

    ScanEntry* lost = LostFolderOf(root);
    std::map<uint32_t, ScanEntry*> placeholders;
    auto placeInLost = [&](ScanEntry* folder, uint32_t parent) {
        ScanEntry*& holder = placeholders[parent];
        if (!holder) {
            holder = NewScanEntry(RecordName(parent), kNodeFolder, parent, lost->recordId);
            if (!holder) return false;
            Prepend(lost, holder);
        }
        Prepend(holder, folder);
        return true;
    };
    // Tops of the forest first (their parent is not a candidate), then whatever is still unread
    // (folders whose entry was not in their parent's clusters, and folders in a cycle of ".."
    // references), then the folders whose first cluster is gone.
    for (int pass = 0; pass < 2; ++pass) {
        for (const auto& [cluster, cand] : found) {
            if (pass == 0 && found.count(cand.parent)) continue;
            if (walker.FindFolder(cluster)) continue;
            ScanEntry* folder = NewScanEntry(RecordName(cluster), kNodeFolder, cluster, cand.parent);
            if (!folder) return;
            folder->createdDate = cand.created;
            folder->modifiedDate = cand.accessed;
            ScanEntry* parent = walker.FindFolder(cand.parent);
            if (cand.parent == code || !lost) {
                Prepend(root, folder);
            } else if (parent && parent != lost && parent != folder) {
                Prepend(parent, folder);
            } else if (!placeInLost(folder, cand.parent)) {
                FreeScanEntries(folder);
                return;
            }
            if (walker.ReadFolderTree(folder)) {
                if (ctx.top) AttachVolume(ctx.top, walker.TakeRoot());
                return;
            }
        }
    }
    for (uint32_t head : headless) {
        if (walker.FindFolder(head) || !lost) continue;
        ScanEntry* folder = NewScanEntry(RecordName(head), kNodeFolder, head, lost->recordId);
        if (!folder) break;
        Prepend(lost, folder);
        if (walker.ReadFolderTree(folder)) break;
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

Outcome FatRebuildFolders(CPhysicalDisk& media, std::span<const uint32_t> folderClusters, ScanContext& ctx) {
    WalkWatch watch(media);
    RebuildFolders(media, folderClusters, ctx);
    return watch.Finish(ctx);
}

} // namespace kestrin
