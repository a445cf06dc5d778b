#include "fs/fat/FatEngine.h"

#include <algorithm>
#include <map>
#include <vector>

#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "fs/fat/ClusterContent.h"
#include "fs/fat/FatLayout.h"
#include "job/ScanContext.h"
#include "storage/CPhysicalDisk.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

using namespace layout::fat_dir;

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
    return (vol.Entry(c) & layout::fat_table::kFat32EntryMask) == 0;
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

void RebuildFolders(CPhysicalDisk& media, std::span<const uint32_t> folderClusters, ScanContext& ctx) {
    CFatVolume vol(media);
    if (!vol.Open(media.GetFsKind())) return;
    const FatGeometry& g = vol.Geometry();
    CFatWalker walker(vol, kFatWalkBare, &ctx);
    ScanEntry* root = walker.Root();
    if (!root) return;
    const uint32_t code = FatRootId(g);

    // First the "." and ".." of every candidate, to know which folders hang inside others.
    struct Candidate {
        uint32_t parent;
        uint16_t created, accessed;
    };
    std::map<uint32_t, Candidate> found;
    std::map<uint32_t, bool> startFull; // candidate -> its first cluster has no end mark
    std::vector<uint8_t> first(g.clusterBytes);
    for (uint32_t c : folderClusters) {
        if (ctx.MustStop(media)) return;
        // A folder cluster holds at least its "." and ".." entries.
        if (!vol.IsDataCluster(c) || found.count(c) || first.size() < 2 * kEntryBytes) continue;
        vol.ReadBytes(vol.ClusterOffset(c), first.data(), first.size());
        Bytes b(first);
        if (!Name83::Is(b, kDotName) || !Name83::Is(b, kDotDotName, kEntryBytes)) continue;
        // A "." naming another cluster belongs to a volume laid out otherwise (an image file kept
        // on this one, or a file system with other clusters): its numbers mean nothing here.
        if (FirstClusterAt(first.data()) != c) continue;
        uint32_t up = FirstClusterAt(first.data() + kEntryBytes);
        found[c] = {up == 0 ? code : up, CreationDate::At(first.data()), AccessDate::At(first.data())};
        bool ends = false;
        for (size_t at = 2 * kEntryBytes; at + kEntryBytes <= first.size() && !ends; at += kEntryBytes)
            ends = Status::At(first.data() + at) == kEndOfFolder;
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

} // namespace

ContentResult FatWriteContent(CFatVolume& vol, const CNode& node, const ContentSink& sink) {
    return WriteFileClusters(vol, node, sink, [&](uint64_t needed) {
        if (!node.IsDeleted()) return CFatVolume::ToRuns(vol.FollowChain(node.recordId, size_t(needed)));
        // A deleted file's chain has been zeroed: what is not free now (a non-zero FAT entry)
        // belongs to other files.
        return RunsOverFreeClusters(vol, node.recordId, needed, [&](uint32_t c) { return vol.Entry(c) != 0; });
    });
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
