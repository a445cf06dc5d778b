#include "fs/Condition.h"

#include <algorithm>
#include <bit>
#include <new>

#include "fs/CNode.h"
#include "fs/VolumeHandle.h"

namespace kestrin {

std::string_view ConditionName(Condition c) {
    switch (c) {
    case Condition::Excellent: return "excellent";
    case Condition::PartlyOverwritten: return "partly-overwritten";
    case Condition::Overwritten: return "overwritten";
    case Condition::Unknown: break;
    }
    return "unknown";
}

Condition ConditionOf(const CNode& node) {
    return node.condition <= uint8_t(Condition::Overwritten) ? Condition(node.condition) : Condition::Unknown;
}

bool CClusterMap::Reset(uint64_t clusters) {
    m_words.clear();
    m_clusters = 0;
    try {
        m_words.assign(size_t((clusters + 63) / 64), 0);
    } catch (const std::bad_alloc&) {
        m_words.clear();
        return false;
    }
    m_clusters = clusters;
    return true;
}

void CClusterMap::TakeBits(std::span<const uint8_t> bitmap) {
    const uint64_t bytes = std::min<uint64_t>(bitmap.size(), (m_clusters + 7) / 8);
    for (uint64_t i = 0; i < bytes; ++i) m_words[size_t(i / 8)] |= uint64_t(bitmap[size_t(i)]) << (8 * (i % 8));
    // Bits past the last cluster stay clear, so that counts over whole words stay right.
    if (m_clusters % 64) m_words.back() &= (uint64_t(1) << (m_clusters % 64)) - 1;
}

uint64_t CClusterMap::CountInUse(uint64_t first, uint64_t count) const {
    if (count == 0) return 0;
    uint64_t outside = 0;
    if (first >= m_clusters) return count;
    if (count > m_clusters - first) {
        outside = count - (m_clusters - first);
        count = m_clusters - first;
    }
    uint64_t n = outside;
    uint64_t c = first;
    const uint64_t end = first + count;
    while (c < end) {
        const uint64_t word = c / 64, bit = c % 64;
        const uint64_t take = std::min<uint64_t>(64 - bit, end - c);
        uint64_t bits = m_words[size_t(word)] >> bit;
        if (take < 64) bits &= (uint64_t(1) << take) - 1;
        n += uint64_t(std::popcount(bits));
        c += take;
    }
    return n;
}

ConditionResult AssessSpans(const CClusterMap& map, std::span<const ClusterSpan> spans, uint64_t size,
                            uint32_t bytesPerCluster) {
    ConditionResult r;
    if (map.Empty() || bytesPerCluster == 0) return r;
    const uint64_t fileClusters = size / bytesPerCluster + (size % bytesPerCluster != 0);
    const uint64_t tail = size % bytesPerCluster; // bytes of the file in its last cluster, 0 = full
    uint64_t held = 0, overwritten = 0;
    const ClusterSpan* firstSpan = nullptr;
    for (const ClusterSpan& s : spans) {
        if (s.count == 0 || s.fileCluster >= fileClusters) continue;
        const uint64_t n = std::min(s.count, fileClusters - s.fileCluster);
        if (!firstSpan || s.fileCluster < firstSpan->fileCluster) firstSpan = &s;
        uint64_t bytes = n * bytesPerCluster;
        uint64_t lost = map.CountInUse(s.first, n) * bytesPerCluster;
        if (tail && s.fileCluster + n == fileClusters) {
            // The file's last cluster holds only `tail` of its bytes.
            bytes -= bytesPerCluster - tail;
            if (map.InUse(s.first + n - 1)) lost -= bytesPerCluster - tail;
        }
        held += bytes;
        overwritten += lost;
    }
    r.overwrittenBytes = overwritten;
    if (!firstSpan || overwritten == 0)
        r.condition = Condition::Excellent;
    else if (overwritten >= held || map.InUse(firstSpan->first))
        r.condition = Condition::Overwritten;
    else
        r.condition = Condition::PartlyOverwritten;
    return r;
}

void RecordCondition(CNode& node, const ConditionResult& result) {
    node.condition = uint8_t(result.condition);
    VolumeHandle* volume = nullptr;
    for (CNode* n = &node; n && !volume; n = n->parent) volume = n->volume.get();
    if (!volume) return;
    if (result.overwrittenBytes)
        volume->overwrittenBytes[&node] = result.overwrittenBytes;
    else
        volume->overwrittenBytes.erase(&node);
}

uint64_t OverwrittenBytes(const CNode& node) {
    const Condition c = ConditionOf(node);
    if (c != Condition::PartlyOverwritten && c != Condition::Overwritten) return 0;
    const VolumeHandle* volume = VolumeOf(node);
    if (!volume) return 0;
    auto it = volume->overwrittenBytes.find(&node);
    return it == volume->overwrittenBytes.end() ? 0 : it->second;
}

bool TakesCondition(const CNode& node) { return node.IsDeleted() && !node.IsFolder(); }

bool MatchesCondition(const CNode& node, Condition c) { return TakesCondition(node) && ConditionOf(node) == c; }

} // namespace kestrin
