// How the FAT walks end when the source fails or the user stops them: a source that goes away
// ends the walk at once, a plain read error only loses what it held, a stop ends the walk; what
// was read before stays listed, and the engine leaves the operation state to the driver.
#include <gtest/gtest.h>

#include "fs/fat/FatBuilder.h"
#include "fs/fat/FatEngine.h"
#include "fs/fat/VolumeImageCheck.h"

namespace kestrin::test {
namespace {

using Names = std::vector<std::string>;

// A FAT32 root with folders A, B and C in clusters 10, 11 and 12, each holding one file. The
// walk reads them in child order: C, then B, then A.
FatBuilder ThreeFolders() {
    FatBuilder b(FsKind::Fat32);
    const char* names[] = {"A          ", "B          ", "C          "};
    for (uint32_t i = 0; i < 3; ++i) {
        const uint32_t c = 10 + i;
        FatBuilder::Short(b.Cluster(2) + 32 * i, names[i], 0x10, c);
        b.Chain({c});
        FatBuilder::Dots(b.Cluster(c), c, 0);
        FatBuilder::Short(b.Cluster(c) + 64, "FILE    TXT", 0x20, 20 + i, 1);
    }
    return b;
}

Outcome RebuildABC(CPhysicalDisk& media, int, ScanContext& ctx) {
    static const uint32_t kFolders[] = {10, 11, 12};
    return FatRebuildFolders(media, kFolders, ctx);
}

TEST(FatOutcome, DeviceGoneReadErrorAndStop) {
    const FatBuilder b = ThreeFolders();
    const uint64_t folderB = b.ClusterOffset(11);
    struct Case {
        const char* what;
        ScanFn scan;
        Trouble trouble;
        Outcome outcome;
        Names paths;
    } cases[] = {
        {"gone at B", FatScanVolume, {folderB, folderB + 512, true}, Outcome::DeviceGone,
         {"A", "B", "C", "C/FILE.TXT"}},
        {"read error at B", FatScanVolume, {folderB, folderB + 512}, Outcome::ReadFailed,
         {"A", "A/FILE.TXT", "B", "C", "C/FILE.TXT"}},
        // The stop comes with the first progress call, as C is reached: C is still read.
        {"stop", FatScanVolume, {0, 0, false, 1}, Outcome::Stopped, {"A", "B", "C", "C/FILE.TXT"}},
        {"rebuild, gone at B", RebuildABC, {folderB, folderB + 512, true}, Outcome::DeviceGone, {}},
        {"rebuild, read error at B", RebuildABC, {folderB, folderB + 512}, Outcome::ReadFailed,
         {"#10", "#10/FILE.TXT", "#12", "#12/FILE.TXT"}},
        {"rebuild, stop", RebuildABC, {0, 0, false, 1}, Outcome::Stopped, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ExpectWalkEnd(b.img, FsKind::Fat32, c.scan, c.trouble, c.outcome, c.paths);
    }
}

} // namespace
} // namespace kestrin::test
