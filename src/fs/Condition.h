#pragma once
// How recoverable a deleted file is, judged from what its file system says about the clusters it
// had: none of them taken by a live file, some, or all (or its first one). Each engine loads its
// volume's allocation map once into a CClusterMap and hands the file's cluster spans to
// AssessSpans. Conditions live in the node (one byte); the bytes found overwritten are kept per
// volume in its handle.
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace kestrin {

class CNode;

enum class Condition : uint8_t {
    Unknown = 0,       // not judged: carved items, no allocation map, no cluster information
    Excellent,         // no cluster of the file is in use by a live file
    PartlyOverwritten, // some are
    Overwritten,       // all are, or the first one is
};

// "excellent", "partly-overwritten", "overwritten", "unknown".
std::string_view ConditionName(Condition c);
Condition ConditionOf(const CNode& node);

// One bit per cluster of a volume, set for clusters in use. Clusters past the map count as in use:
// what lies outside the volume cannot be read back.
class CClusterMap {
public:
    // Makes room for `clusters` bits, all clear. False (and empty) when that cannot be had.
    bool Reset(uint64_t clusters);
    uint64_t Clusters() const { return m_clusters; }
    bool Empty() const { return m_clusters == 0; }
    void Set(uint64_t cluster) {
        if (cluster < m_clusters) m_words[cluster / 64] |= uint64_t(1) << (cluster % 64);
    }
    // Takes the bits of an on-disk bitmap (bit n of byte n/8 for cluster n), as far as both reach.
    void TakeBits(std::span<const uint8_t> bitmap);
    bool InUse(uint64_t cluster) const {
        return cluster >= m_clusters || (m_words[cluster / 64] >> (cluster % 64) & 1);
    }
    // In-use clusters among [first, first + count), word by word.
    uint64_t CountInUse(uint64_t first, uint64_t count) const;

private:
    std::vector<uint64_t> m_words;
    uint64_t m_clusters = 0;
};

// A stretch of a file: `count` clusters from cluster `first`, holding the file's bytes from
// cluster `fileCluster` on (its place in the file, counted in clusters).
struct ClusterSpan {
    uint64_t fileCluster = 0;
    uint64_t first = 0;
    uint64_t count = 0;
};

struct ConditionResult {
    Condition condition = Condition::Unknown;
    uint64_t overwrittenBytes = 0;
};

// Judges a file of `size` bytes from its spans: the bytes that lie in in-use clusters are
// overwritten (a last cluster counts only for the file's bytes in it); parts of a span beyond
// the file's size are ignored. A file with no bytes in clusters (empty, resident) is excellent.
// The first span in file order holds the file's first cluster.
ConditionResult AssessSpans(const CClusterMap& map, std::span<const ClusterSpan> spans, uint64_t size,
                            uint32_t bytesPerCluster);

// Stores a judged condition: in the node, and the overwritten bytes in its volume's handle.
void RecordCondition(CNode& node, const ConditionResult& result);
// The bytes of a deleted file its volume found in use by other files; 0 when none were or the
// file was not judged.
uint64_t OverwrittenBytes(const CNode& node);
// True when the node is a deleted file in condition `c` (the results filter's test). Live
// files and folders match none.
bool MatchesCondition(const CNode& node, Condition c);

// The deleted files below a volume root that the engines judge (not folders, not carved items).
bool TakesCondition(const CNode& node);

} // namespace kestrin
