// How the exFAT walk ends when the source fails or the user stops it: a source that goes away
// ends the walk at once, a plain read error only loses what it held, a stop ends the walk; what
// was read before stays listed, and the engine leaves the operation state to the driver.
#include <gtest/gtest.h>

#include "fs/exfat/ExFatBuilder.h"
#include "fs/exfat/ExFatEngine.h"
#include "fs/fat/VolumeImageCheck.h"

namespace kestrin::test {
namespace {

using Names = std::vector<std::string>;
constexpr uint16_t kFile = 0x20, kDir = 0x10;
constexpr size_t kCB = ExFatBuilder::kClusterBytes;

TEST(ExFatOutcome, DeviceGoneReadErrorAndStop) {
    // Folders a, b and c (read in child order: c, b, a). b's chain is 21 then 23, two reads,
    // with its file in the second cluster.
    ExFatBuilder b;
    uint8_t* e = b.Cluster(ExFatBuilder::kRoot) + 96;
    e += 32 * ExFatBuilder::Set(e, true, kDir, u"a", 20, kCB, false);
    e += 32 * ExFatBuilder::Set(e, true, kDir, u"b", 21, 2 * kCB, true);
    ExFatBuilder::Set(e, true, kDir, u"c", 22, kCB, false);
    b.Chain({21, 23});
    ExFatBuilder::Set(b.Cluster(20), true, kFile, u"f.txt", 30, 1, false);
    ExFatBuilder::Set(b.Cluster(23), true, kFile, u"g.txt", 31, 1, false);
    ExFatBuilder::Set(b.Cluster(22), true, kFile, u"h.txt", 32, 1, false);
    const uint64_t folderB = b.ClusterOffset(21);
    struct Case {
        const char* what;
        Trouble trouble;
        Outcome outcome;
        Names paths;
    } cases[] = {
        {"gone at b", {folderB, folderB + kCB, true}, Outcome::DeviceGone, {"a", "b", "c", "c/h.txt"}},
        {"read error at b", {folderB, folderB + kCB}, Outcome::ReadFailed, {"a", "a/f.txt", "b", "b/g.txt", "c", "c/h.txt"}},
        // The stop comes with the first progress call, as c is reached: c is still read.
        {"stop", {0, 0, false, 1}, Outcome::Stopped, {"a", "b", "c", "c/h.txt"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        TroubledScan r = ScanWithTrouble(b.img, kFsExFat, ExFatScanVolume, c.trouble);
        EXPECT_EQ(r.outcome, c.outcome) << OutcomeName(r.outcome);
        EXPECT_EQ(r.paths, c.paths);
        EXPECT_EQ(r.readsAfterGone, 0); // nothing is read once the source said it is gone
        EXPECT_EQ(r.stateAfter, c.trouble.stopAtProgress ? kStateCancel : kStateRunning);
    }
}

} // namespace
} // namespace kestrin::test
