#include <gtest/gtest.h>

#include <memory>

#include "fs/CNode.h"
#include "fs/Condition.h"
#include "fs/VolumeHandle.h"
#include "fs/VolumeTree.h"

using namespace kestrin;

namespace {

constexpr uint32_t kCluster = 4096;

CClusterMap MapWith(uint64_t clusters, std::initializer_list<uint64_t> used) {
    CClusterMap map;
    EXPECT_TRUE(map.Reset(clusters));
    for (uint64_t c : used) map.Set(c);
    return map;
}

} // namespace

TEST(ClusterMap, CountsAcrossWordsAndTreatsWhatLiesOutsideAsTaken) {
    CClusterMap map = MapWith(200, {0, 63, 64, 65, 127, 128, 199});
    EXPECT_EQ(map.CountInUse(0, 200), 7u);
    EXPECT_EQ(map.CountInUse(1, 62), 0u);
    EXPECT_EQ(map.CountInUse(63, 3), 3u);
    EXPECT_EQ(map.CountInUse(66, 61), 0u);
    // Clusters past the map: the last one in it is used, the 5 beyond count as used.
    EXPECT_EQ(map.CountInUse(199, 6), 6u);
    EXPECT_EQ(map.CountInUse(1000, 3), 3u);
    EXPECT_TRUE(map.InUse(200));

    // An on-disk bitmap longer than the map leaves no bits past its end.
    const uint8_t bits[] = {0x81, 0xFF, 0xFF};
    CClusterMap small;
    ASSERT_TRUE(small.Reset(12));
    small.TakeBits(bits);
    EXPECT_EQ(small.CountInUse(0, 12), 6u); // clusters 0, 7, 8-11
    EXPECT_FALSE(small.InUse(1));
}

TEST(AssessSpans, GradesByTheBytesInClustersInUse) {
    const uint64_t size = 4 * kCluster - 100; // the last cluster holds 3996 of the file's bytes
    const ClusterSpan span{0, 10, 4};
    auto judge = [&](std::initializer_list<uint64_t> used) {
        return AssessSpans(MapWith(64, used), {&span, 1}, size, kCluster);
    };
    EXPECT_EQ(judge({9, 14}).condition, Condition::Excellent); // neighbours only
    ConditionResult partly = judge({11, 13});
    EXPECT_EQ(partly.condition, Condition::PartlyOverwritten);
    EXPECT_EQ(partly.overwrittenBytes, kCluster + (kCluster - 100));
    ConditionResult first = judge({10});
    EXPECT_EQ(first.condition, Condition::Overwritten);
    EXPECT_EQ(first.overwrittenBytes, kCluster);
    ConditionResult all = judge({11, 12, 13, 10});
    EXPECT_EQ(all.condition, Condition::Overwritten);
    EXPECT_EQ(all.overwrittenBytes, size);

    // Pieces out of order: the first cluster is the one at the file's start; span parts beyond
    // the size do not count.
    const ClusterSpan pieces[] = {{2, 40, 5}, {0, 20, 2}};
    ConditionResult r = AssessSpans(MapWith(64, {41, 42, 43}), pieces, size, kCluster);
    EXPECT_EQ(r.condition, Condition::PartlyOverwritten);
    EXPECT_EQ(r.overwrittenBytes, kCluster - 100);
    EXPECT_EQ(AssessSpans(MapWith(64, {20}), pieces, size, kCluster).condition, Condition::Overwritten);

    // No clusters (empty or resident data): excellent; no map: unknown.
    EXPECT_EQ(AssessSpans(MapWith(64, {}), {}, 700, kCluster).condition, Condition::Excellent);
    EXPECT_EQ(AssessSpans(CClusterMap{}, {&span, 1}, size, kCluster).condition, Condition::Unknown);
}

TEST(Condition, RecordedOnTheNodeWithBytesInItsVolumeAndMatchedByTheFilter) {
    std::unique_ptr<CNode> top(MakeTopNode());
    CNode* root = AddFolder(top.get(), u".");
    root->volume = std::make_unique<VolumeHandle>();
    CNode* folder = AddFolder(root, u"old");
    auto file = [&](const char16_t* name, uint16_t flags) {
        CNode* n = AddCarvedFile(folder, name, 0, 9000, 0);
        n->carved = 0;
        n->flags = flags;
        return n;
    };
    CNode* partly = file(u"a", 0);
    CNode* live = file(u"b", kNodeInUse);
    CNode* unjudged = file(u"c", 0);
    RecordCondition(*partly, {Condition::PartlyOverwritten, 4096});
    EXPECT_EQ(OverwrittenBytes(*partly), 4096u);
    EXPECT_EQ(root->volume->overwrittenBytes.size(), 1u);
    EXPECT_TRUE(MatchesCondition(*partly, Condition::PartlyOverwritten));
    EXPECT_FALSE(MatchesCondition(*partly, Condition::Excellent));
    EXPECT_TRUE(MatchesCondition(*unjudged, Condition::Unknown));
    // Live files and folders have no condition to match.
    for (Condition c : {Condition::Unknown, Condition::Excellent, Condition::PartlyOverwritten, Condition::Overwritten}) {
        EXPECT_FALSE(MatchesCondition(*live, c));
        EXPECT_FALSE(MatchesCondition(*folder, c));
    }
    // Judged again as excellent: the bytes go.
    RecordCondition(*partly, {Condition::Excellent, 0});
    EXPECT_EQ(OverwrittenBytes(*partly), 0u);
    EXPECT_TRUE(root->volume->overwrittenBytes.empty());
    EXPECT_EQ(ConditionName(ConditionOf(*partly)), "excellent");
}
