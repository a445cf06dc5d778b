#include "fs/fat/FatEngine.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <vector>

#include "fs/CNode.h"
#include "fs/Condition.h"
#include "fs/VolumeTree.h"
#include "fs/fat/CFatVolume.h"
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

// Bytes per read of the passes over the volume.
constexpr size_t kPassReadBytes = 4 << 20;
// Folder clusters the pass keeps at most; past this the volume is not a plausible old file system.
constexpr size_t kMaxFolderClusters = size_t(1) << 20;
// The search for a previous file system looks at every 512-byte sector: its clusters may have
// been of another size and laid out from another data start than the current ones.
constexpr uint32_t kSweepSectorBytes = 512;
// The largest cluster a FAT volume has.
constexpr uint32_t kMaxOldClusterBytes = 64u << 10;
// Sector shapes the sweep keeps at most (16 bytes each).
constexpr size_t kMaxSectorShapes = size_t(8) << 20;
// Layouts, among those voted for by neighbouring folder starts, that are checked against all.
constexpr size_t kLayoutsTried = 4;

// One cluster that holds folder entries, in cluster order: the first of a folder (with "." and
// "..") or one that may continue a folder; `full` when it has no end mark.
struct ShapedCluster {
    uint32_t cluster = 0;
    bool start = false;
    bool full = false;
};

// A folder of the previous file system as the pass pieces it together.
struct OldFolder {
    std::vector<uint32_t> clusters;
    bool headless = false; // its first cluster (with "." and "..") is gone
};

// A folder start: what its "." and ".." say.
struct Candidate {
    uint32_t parent;
    uint16_t created, accessed;
};

// Pieces the previous file system's folders together from its folder-shaped clusters that are
// free in the current FAT (`isFree`). After a quick format the old FAT is gone, so a folder's
// clusters are found by their contents: a cluster starting with "." and ".." begins a folder; a
// cluster of well-formed entries without them continues one. A folder whose last cluster is full
// goes on in the nearest such cluster after it that no other folder has taken (FAT hands out the
// next free cluster when a folder grows, so a folder that grew between its files is continued
// where it grew, and a contiguous folder in the very next cluster). Continuations with no open
// folder before them are folders whose first cluster was overwritten (the old root's later
// clusters, for one).
std::vector<OldFolder> PieceOldFolders(std::span<const ShapedCluster> shaped, size_t maxPerFolder,
                                       const std::function<bool(uint32_t)>& isFree) {
    std::vector<OldFolder> folders;
    std::map<uint32_t, size_t> openByLast; // last cluster of an open folder -> folder
    size_t kept = 0;
    for (const ShapedCluster& s : shaped) {
        if (kept >= kMaxFolderClusters) break;
        // Clusters in use now belong to the current file system, which its own FAT describes.
        if (!isFree(s.cluster)) continue;
        ++kept;
        size_t owner = folders.size();
        if (!s.start) {
            // Continuation: the open folder that ends nearest before it.
            auto it = openByLast.lower_bound(s.cluster);
            if (it != openByLast.begin()) {
                --it;
                owner = it->second;
                openByLast.erase(it);
            }
        }
        if (owner == folders.size()) folders.push_back({{}, !s.start});
        folders[owner].clusters.push_back(s.cluster);
        if (s.full && folders[owner].clusters.size() < maxPerFolder) openByLast[s.cluster] = owner;
    }
    return folders;
}

// Reads the volume's clusters in order and keeps those that hold folder entries (the known
// starts as they are).
std::vector<ShapedCluster> ShapeByReading(CFatVolume& vol, const std::map<uint32_t, bool>& starts, ScanContext* ctx) {
    const FatGeometry& g = vol.Geometry();
    std::vector<ShapedCluster> out;
    const uint32_t last = vol.LastClusterInVolume();
    if (g.clusterBytes == 0 || last < 2) return out;
    const size_t perRead =
        size_t(std::min<uint64_t>(std::max<size_t>(1, kPassReadBytes / g.clusterBytes), uint64_t(last) - 1));
    std::vector<uint8_t> buf(perRead * g.clusterBytes);
    for (uint64_t c = 2; c <= last && out.size() < kMaxFolderClusters;) {
        if (ctx) {
            if (ctx->MustStop(vol.Media())) break;
            ctx->Progress(int64_t(c - 2), int64_t(last - 1));
        }
        const size_t n = size_t(std::min<uint64_t>(perRead, uint64_t(last) - c + 1));
        vol.ReadBytes(vol.ClusterOffset(uint32_t(c)), buf.data(), n * g.clusterBytes);
        for (size_t i = 0; i < n; ++i) {
            const uint32_t cluster = uint32_t(c + i);
            auto start = starts.find(cluster);
            if (start != starts.end()) {
                out.push_back({cluster, true, start->second});
                continue;
            }
            FatFolderShape shape =
                FatFolderClusterShape({buf.data() + i * g.clusterBytes, g.clusterBytes}, g.highestCluster);
            if (shape != FatFolderShape::kNone) out.push_back({cluster, false, shape == FatFolderShape::kFull});
        }
        c += n;
    }
    return out;
}

// Hangs the pieced folders and the folder starts (`found`, by first cluster) into a tree read with
// `walker`'s bare walk, and hands it to ctx.top.
void AttachRebuiltFolders(CFatWalker& walker, uint32_t code, const std::map<uint32_t, Candidate>& found,
                          std::vector<OldFolder> pieced, ScanContext& ctx, CPhysicalDisk& media) {
    ScanEntry* root = walker.Root();
    if (!root) return;
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
            if (ctx.MustStop(media)) break;
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

size_t MaxClustersPerFolder(const FatGeometry& g) {
    return size_t(std::max<uint64_t>(1, kFatMaxFolderBytes / std::max<uint32_t>(1, g.clusterBytes)));
}

bool HasEndMark(const uint8_t* entries, size_t bytes) {
    for (size_t at = 0; at + kEntryBytes <= bytes; at += kEntryBytes)
        if (Status::At(entries + at) == kEndOfFolder) return true;
    return false;
}

bool IsDotEntry(const uint8_t* e, bool dotDot) {
    return std::memcmp(e + Name83::kOffset, dotDot ? kDotDotName : kDotName, Name83::kSize) == 0 &&
           (Attributes::At(e) & kAttrFolder) != 0;
}

void RebuildFolders(CPhysicalDisk& media, std::span<const uint32_t> folderClusters, ScanContext& ctx) {
    CFatVolume vol(media);
    if (!vol.Open(media.GetFsKind())) return;
    const FatGeometry& g = vol.Geometry();
    CFatWalker walker(vol, kFatWalkBare, &ctx);
    if (!walker.Root()) return;
    const uint32_t code = FatRootId(g);

    // First the "." and ".." of every candidate, to know which folders hang inside others.
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
        startFull[c] = !HasEndMark(first.data() + 2 * kEntryBytes, first.size() - 2 * kEntryBytes);
    }
    std::vector<ShapedCluster> shaped = ShapeByReading(vol, startFull, &ctx);
    if (ctx.MustStop(media)) return;
    auto pieced = PieceOldFolders(shaped, MaxClustersPerFolder(g), [&](uint32_t c) {
        return (vol.Entry(c) & layout::fat_table::kFat32EntryMask) == 0;
    });
    AttachRebuiltFolders(walker, code, found, std::move(pieced), ctx, media);
}

// What one pass over the volume's sectors found. Sectors that cannot be part of a folder are not
// kept; zero sectors only just after folder entries (where a folder's unused tail lies).
enum class SectorShape : uint8_t { kZero, kEnds, kFull, kStartEnds, kStartFull };
struct FolderStart {
    uint64_t offset = 0; // absolute byte offset of its first sector
    uint32_t cluster = 0, parent = 0;
    uint16_t created = 0, accessed = 0;
};
struct SectorSweep {
    std::vector<FolderStart> starts;
    std::vector<std::pair<uint64_t, SectorShape>> shapes; // by sector number (offset / 512), ascending
};

bool AllZero(const uint8_t* p, size_t n) {
    return std::all_of(p, p + n, [](uint8_t b) { return b == 0; });
}

SectorSweep SweepSectors(CFatVolume& vol, uint64_t from, uint64_t to, ScanContext& ctx) {
    SectorSweep out;
    std::vector<uint8_t> buf(kPassReadBytes);
    constexpr uint64_t kTail = kMaxOldClusterBytes / kSweepSectorBytes;
    uint64_t lastFolderSector = ~0ull;
    from = from / kSweepSectorBytes * kSweepSectorBytes;
    for (uint64_t at = from; at < to;) {
        if (ctx.MustStop(vol.Media())) break;
        ctx.Progress(int64_t((at - from) / kSweepSectorBytes), int64_t((to - from) / kSweepSectorBytes), kSweepSectorBytes);
        const size_t n = size_t(std::min<uint64_t>(buf.size(), (to - at) / kSweepSectorBytes * kSweepSectorBytes));
        if (n == 0) break;
        vol.ReadBytes(at, buf.data(), n);
        for (size_t i = 0; i < n && out.shapes.size() < kMaxSectorShapes; i += kSweepSectorBytes) {
            const uint8_t* p = buf.data() + i;
            const uint64_t sector = (at + i) / kSweepSectorBytes;
            const uint32_t dotCluster = FirstClusterAt(p);
            SectorShape shape;
            if (IsDotEntry(p, false) && IsDotEntry(p + kEntryBytes, true) && dotCluster >= 2 &&
                out.starts.size() < kMaxFolderClusters) {
                out.starts.push_back({at + i, dotCluster, FirstClusterAt(p + kEntryBytes), CreationDate::At(p),
                                      AccessDate::At(p)});
                shape = HasEndMark(p + 2 * kEntryBytes, kSweepSectorBytes - 2 * kEntryBytes) ? SectorShape::kStartEnds
                                                                                              : SectorShape::kStartFull;
            } else {
                FatFolderShape s = FatFolderClusterShape({p, kSweepSectorBytes}, layout::fat_table::kFat32MaxCluster);
                if (s == FatFolderShape::kFull) {
                    shape = SectorShape::kFull;
                } else if (s == FatFolderShape::kEnds) {
                    shape = SectorShape::kEnds;
                } else if (lastFolderSector != ~0ull && sector - lastFolderSector < kTail &&
                           AllZero(p, kSweepSectorBytes)) {
                    out.shapes.push_back({sector, SectorShape::kZero});
                    continue;
                } else {
                    continue;
                }
            }
            out.shapes.push_back({sector, shape});
            lastFolderSector = sector;
        }
        at += n;
    }
    return out;
}

// The data start and cluster size of the file system whose folders the sweep found: each pair of
// neighbouring folder starts votes for the layout that puts both where their "." entries say;
// the few most voted for, and the current layout, are then counted against every start.
struct OldLayout {
    uint64_t dataStart = 0;
    uint32_t clusterBytes = 0;
    size_t matches = 0;
    bool Places(const FolderStart& s) const {
        return s.cluster >= 2 && s.offset >= dataStart && (s.offset - dataStart) % clusterBytes == 0 &&
               (s.offset - dataStart) / clusterBytes == s.cluster - 2ull;
    }
};

OldLayout SolveOldLayout(const std::vector<FolderStart>& starts, const FatGeometry& current) {
    std::map<std::pair<uint64_t, uint32_t>, size_t> votes;
    for (size_t i = 1; i < starts.size(); ++i) {
        const FolderStart &a = starts[i - 1], &b = starts[i];
        if (b.cluster <= a.cluster) continue;
        const uint64_t bytes = b.offset - a.offset, clusters = b.cluster - a.cluster;
        if (bytes % clusters) continue;
        const uint64_t size = bytes / clusters;
        if (size < kSweepSectorBytes || size > kMaxOldClusterBytes || (size & (size - 1))) continue;
        const uint64_t before = uint64_t(a.cluster - 2) * size;
        if (before > a.offset) continue;
        ++votes[{a.offset - before, uint32_t(size)}];
    }
    std::vector<OldLayout> tried{{current.dataStart, current.clusterBytes, 0}};
    std::vector<std::pair<size_t, std::pair<uint64_t, uint32_t>>> ranked;
    for (const auto& [layoutKey, n] : votes) ranked.push_back({n, layoutKey});
    std::sort(ranked.begin(), ranked.end(), [](const auto& x, const auto& y) { return x.first > y.first; });
    for (size_t i = 0; i < ranked.size() && i < kLayoutsTried; ++i)
        tried.push_back({ranked[i].second.first, ranked[i].second.second, 0});
    OldLayout best = tried.front();
    for (OldLayout& l : tried) {
        if (l.clusterBytes == 0) continue;
        for (const FolderStart& s : starts) l.matches += l.Places(s);
        // The current layout wins ties; another needs two starts to be believed.
        if (l.matches > best.matches && (&l == &tried.front() || l.matches >= 2)) best = l;
    }
    return best;
}

// The folder-shaped clusters of `layout` from the sweep's sector shapes, in cluster order.
std::vector<ShapedCluster> ShapeFromSweep(const SectorSweep& sweep, const OldLayout& layout, uint32_t highest) {
    std::vector<ShapedCluster> out;
    const uint64_t perCluster = layout.clusterBytes / kSweepSectorBytes;
    const auto& shapes = sweep.shapes;
    for (size_t i = 0; i < shapes.size() && out.size() < kMaxFolderClusters; ++i) {
        const uint64_t offset = shapes[i].first * kSweepSectorBytes;
        if (offset < layout.dataStart || (offset - layout.dataStart) % layout.clusterBytes) continue;
        const uint64_t cluster = (offset - layout.dataStart) / layout.clusterBytes + 2;
        if (cluster > highest) break;
        const SectorShape head = shapes[i].second;
        if (head == SectorShape::kZero) continue;
        const bool start = head == SectorShape::kStartEnds || head == SectorShape::kStartFull;
        bool ended = head == SectorShape::kEnds || head == SectorShape::kStartEnds, sound = true;
        // The cluster's other sectors: entries until an end mark, zeros after it.
        for (uint64_t k = 1; k < perCluster && sound; ++k) {
            const size_t j = i + size_t(k);
            if (j >= shapes.size() || shapes[j].first != shapes[i].first + k) {
                sound = false;
                break;
            }
            const SectorShape s = shapes[j].second;
            if (ended) {
                sound = s == SectorShape::kZero;
            } else if (s == SectorShape::kZero || s == SectorShape::kEnds) {
                ended = true;
            } else {
                sound = s == SectorShape::kFull;
            }
        }
        // A start keeps its place whatever follows; its folder just does not go on.
        if (!sound && !start) continue;
        out.push_back({uint32_t(cluster), start, sound && !ended});
    }
    return out;
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

Outcome FatSearchPreviousFolders(CPhysicalDisk& media, ScanContext& ctx) {
    WalkWatch watch(media);
    CFatVolume current(media);
    if (!current.Open(media.GetFsKind())) return watch.Finish(ctx, true);
    const FatGeometry g = current.Geometry();
    if (g.clusterBytes < 2 * kEntryBytes || g.highestCluster < layout::fat_table::kFirstDataCluster || !g.volumeEnd)
        return watch.Finish(ctx);
    // Old folders may lie anywhere after the current FATs (which overwrote whatever was there).
    const uint64_t fatEnd = HasFatRootRegion(g.fsKind) ? g.rootRegion : g.dataStart;
    SectorSweep sweep = SweepSectors(current, std::min(fatEnd, g.dataStart), g.volumeEnd, ctx);
    if (ctx.MustStop(media)) return watch.Finish(ctx);
    const OldLayout found = SolveOldLayout(sweep.starts, g);
    if (found.matches == 0) return watch.Finish(ctx);

    // The old volume: the current one with the clusters laid out as they were.
    FatGeometry og = g;
    og.dataStart = found.dataStart;
    og.clusterBytes = found.clusterBytes;
    const uint64_t maxCluster = g.fsKind == FsKind::Fat12   ? layout::fat_table::kFat12MaxCluster
                                : g.fsKind == FsKind::Fat16 ? layout::fat_table::kFat16MaxCluster
                                                            : layout::fat_table::kFat32MaxCluster;
    og.highestCluster = uint32_t(std::min<uint64_t>(maxCluster, (g.volumeEnd - og.dataStart) / og.clusterBytes + 1));
    const bool moved = og.dataStart != g.dataStart || og.clusterBytes != g.clusterBytes;
    CFatVolume old(media);
    old.SetGeometry(og);
    CFatWalker walker(old, kFatWalkBare, &ctx);
    if (!walker.Root()) return watch.Finish(ctx);
    const uint32_t code = FatRootId(og);
    std::map<uint32_t, Candidate> starts;
    for (const FolderStart& s : sweep.starts)
        if (found.Places(s) && s.cluster <= og.highestCluster)
            starts.emplace(s.cluster, Candidate{s.parent == 0 ? code : s.parent, s.created, s.accessed});
    std::vector<ShapedCluster> shaped = ShapeFromSweep(sweep, found, og.highestCluster);
    sweep = {};
    // An old cluster is free when the current clusters over its bytes are: bytes before the
    // current data area hold the current FATs now.
    auto isFree = [&](uint32_t c) {
        const uint64_t at = old.ClusterOffset(c);
        if (at < g.dataStart) return false;
        const uint64_t first = (at - g.dataStart) / g.clusterBytes + 2;
        const uint64_t last = (at + og.clusterBytes - 1 - g.dataStart) / g.clusterBytes + 2;
        for (uint64_t k = first; k <= last; ++k)
            if (k <= g.highestCluster && (current.Entry(uint32_t(k)) & layout::fat_table::kFat32EntryMask) != 0)
                return false;
        return true;
    };
    auto pieced = PieceOldFolders(shaped, MaxClustersPerFolder(og), isFree);
    AttachRebuiltFolders(walker, code, starts, std::move(pieced), ctx, media);
    if (moved && IsFatKind(g.fsKind)) {
        // The volume root takes the media's selection as its handle: let it carry the old layout,
        // so that the items below are read back from where they lie.
        const uint32_t ss = g.mediaSectorSize ? g.mediaSectorSize : kSweepSectorBytes;
        const uint64_t volumeStart = media.GetFirstSector() * ss;
        if (og.clusterBytes % ss == 0 && og.clusterBytes / ss <= 255 && og.dataStart >= volumeStart &&
            (og.dataStart - volumeStart) % ss == 0 && g.fatStart >= volumeStart) {
            PartitionRecord r = media.GetPartitionParams();
            r.fsKind = g.fsKind;
            r.partitionFlag = PartitionFlag::Validated;
            r.sectorsPerCluster = og.clusterBytes / ss;
            r.fatStart = (g.fatStart - volumeStart) / ss;
            r.thirdArea = (og.dataStart - volumeStart) / ss;
            const uint64_t fatBytes = FatBytesForEntries(g.fsKind, uint64_t(og.highestCluster) + 1);
            r.fatSize = uint32_t(std::max<uint64_t>(r.fatSize, (fatBytes + ss - 1) / ss));
            r.secondArea = r.fatStart + r.fatSize;
            r.clusterCount = og.highestCluster - 1;
            if (r.length == 0) r.length = media.GetSectorCount();
            media.SetPartitionParams(r);
        }
    }
    return watch.Finish(ctx);
}

void JudgeClusterFiles(CNode& volumeRoot, const CClusterMap& map, uint32_t clusterBytes, int64_t clusterBase,
                       const std::function<bool(uint32_t)>& validFirst, const std::function<bool()>& stop,
                       bool& stopped) {
    stopped = false;
    ForEachNode(&volumeRoot, [&](CNode* n) {
        if (stopped || !TakesCondition(*n)) return;
        if (stop && stop()) {
            stopped = true;
            return;
        }
        if (n->size == 0) {
            RecordCondition(*n, AssessSpans(map, {}, 0, clusterBytes));
            return;
        }
        // Without a first cluster nothing says where the file was.
        if (!validFirst(n->recordId)) return;
        const uint64_t needed = (n->size + clusterBytes - 1) / clusterBytes;
        const ClusterSpan span{0, uint64_t(int64_t(n->recordId) + clusterBase), needed};
        RecordCondition(*n, AssessSpans(map, {&span, 1}, n->size, clusterBytes));
    });
}

bool FatJudgeConditions(CPhysicalDisk& media, CNode& volumeRoot, const std::function<bool()>& stop) {
    CFatVolume vol(media);
    if (!vol.Open(media.GetFsKind())) return false;
    const FatGeometry& g = vol.Geometry();
    if (g.clusterBytes == 0) return false;
    // The FAT as a bitmap: a cluster whose entry is not 0 belongs to a live file (or is bad or
    // reserved); clusters 0 and 1 hold no data.
    const uint32_t last = vol.LastClusterInVolume();
    CClusterMap map;
    if (last < 2 || !map.Reset(uint64_t(last) + 1)) return false;
    map.Set(0);
    map.Set(1);
    for (uint32_t c = 2; c <= last; ++c) {
        if ((c & 0xFFFF) == 0 && stop && stop()) return false;
        if (vol.Entry(c) != 0) map.Set(c);
    }
    bool stopped = false;
    JudgeClusterFiles(volumeRoot, map, g.clusterBytes, 0, [&](uint32_t c) { return vol.IsDataCluster(c); }, stop,
                      stopped);
    return !stopped;
}

} // namespace kestrin
