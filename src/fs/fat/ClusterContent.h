#pragma once
// The content read-back FAT and exFAT share: a file's bytes from runs of clusters. The formats
// differ only in where a file's clusters are, which each says through the runs it passes in.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <vector>

#include "fs/Content.h"
#include "fs/fat/CFatVolume.h"

namespace kestrin {

// The clusters of a file, `needed` of them, as the format finds them.
using FileRunsFn = std::function<std::vector<ClusterRun>(uint64_t needed)>;

// Writes the content of a file found on the volume: an empty file gives nothing (and succeeds);
// a folder, or a file whose first cluster is not a data cluster, fails; any other file is read
// from the runs `runsOf` gives for its cluster count.
ContentResult WriteFileClusters(CFatVolume& volume, const CNode& node, const ContentSink& sink,
                                const FileRunsFn& runsOf);

// The clusters a deleted file is taken to have had, `needed` of them at most: its first cluster,
// then every later cluster up to the end of the volume that `inUse` does not claim for another
// file. A file written in pieces around files that still exist comes back whole; a contiguous
// one reads as it was.
template <class InUse>
std::vector<ClusterRun> RunsOverFreeClusters(CFatVolume& volume, uint32_t first, uint64_t needed, InUse&& inUse) {
    std::vector<ClusterRun> runs;
    uint64_t taken = 0;
    const uint64_t last = std::max(volume.LastClusterInVolume(), first);
    for (uint64_t c = first; taken < needed && c <= last; ++c) {
        if (c != first && inUse(uint32_t(c))) continue;
        if (!runs.empty() && uint64_t(runs.back().first) + runs.back().count == c)
            ++runs.back().count;
        else
            runs.push_back({uint32_t(c), 1});
        ++taken;
    }
    return runs;
}

} // namespace kestrin
