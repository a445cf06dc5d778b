// The real engines through the driver and the session layer: a confirmed stop during any
// file-system walk ends the operation, and items are read back through their own volume.
#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestImages.h"
#include "carve/SignatureRecord.h"
#include "fs/CNode.h"
#include "fs/VolumeHandle.h"
#include "fs/VolumeTree.h"
#include "job/QuietScanEvents.h"
#include "output/ContentCopy.h"
#include "output/SessionFile.h"
#include "scan/CScanDriver.h"
#include "session/EngineTable.h"
#include "session/Source.h"

using namespace kestrin;

namespace {

// Confirms a stop at the first progress report, as a user answering Yes at once would.
struct StopAtFirstProgress final : IScanEvents {
    CScanDriver* driver = nullptr;
    std::atomic<int> progress{0};
    void OnEnd() override {}
    void OnProgress() override {
        if (progress++ == 0 && driver) driver->RequestCancel();
    }
    void OnSignatureScanStart() override {}
};

std::vector<uint8_t> Content(CPhysicalDisk& media, const CNode& node) {
    std::vector<uint8_t> out;
    ContentResult r = WriteNodeContent(media, node, [&](const uint8_t* p, size_t n) {
        out.insert(out.end(), p, p + n);
        return true;
    });
    if (!r.ok) out.clear();
    return out;
}

const CNode* FirstFileWithData(CNode* top) {
    const CNode* found = nullptr;
    ForEachNode(top, [&](CNode* n) {
        if (!found && !n->IsFolder() && !n->IsDeleted() && n->size > 0) found = n;
    });
    return found;
}

} // namespace

// One image per engine; each is scanned in lost-files mode, where the content search would
// follow the file-system stage.
TEST(EngineRun, StopDuringTheWalkEndsTheOperation) {
    const std::vector<SignatureRecord> noRows;
    for (const char* name : {"ntfs-features", "fat32-features", "fat16-features", "exfat-features"}) {
        std::string img = test::UnpackImage(name);
        ASSERT_FALSE(img.empty()) << name;
        OpenedSource src;
        std::string error;
        ASSERT_TRUE(OpenSource(img, src, error)) << error;
        StopAtFirstProgress events;
        CScanDriver driver(*src.media, MakeEngines(), events);
        events.driver = &driver;
        driver.SetSignatures(&noRows);
        ASSERT_EQ(driver.StartForSource(RecoveryMode::LostFiles), OperationKind::FileSystemScan) << name;
        driver.Wait();
        EXPECT_GT(events.progress.load(), 0) << name;
        EXPECT_TRUE(driver.CancelConfirmed()) << name;
        EXPECT_EQ(driver.Result(), Outcome::Stopped) << name;
        std::vector<Stage> stages = driver.StagesRun();
        EXPECT_EQ(stages, std::vector<Stage>{Stage::FileSystemScan}) << name << ": the content search ran";
        EXPECT_EQ(FindChild(driver.Top(), u"File Types"), nullptr) << name;
        EXPECT_EQ(driver.Operation().state.load(), OperationState::Finished) << name;
    }
}

// Three volumes of three file systems in one disk image: each volume's items come back through
// their own volume although the media selects another one by then.
TEST(EngineRun, ItemsAreReadThroughTheirOwnVolume) {
    std::string img = test::UnpackImage("disk-mbr-small");
    ASSERT_FALSE(img.empty());
    OpenedSource src;
    std::string error;
    ASSERT_TRUE(OpenSource(img, src, error)) << error;
    auto scannable = ScannablePartitions(src);
    ASSERT_EQ(scannable.size(), 3u);
    struct Scanned {
        std::unique_ptr<CNode> tree;
        const CNode* file = nullptr;
        std::vector<uint8_t> expected;
        FsKind fsKind = FsKind::None;
    };
    std::vector<Scanned> scans;
    for (size_t index : scannable) {
        ASSERT_TRUE(SelectListedPartition(src, index));
        QuietScanEvents events;
        CScanDriver driver(*src.media, MakeEngines(), events);
        ASSERT_EQ(driver.StartForSource(RecoveryMode::DeletedFiles), OperationKind::FileSystemScan);
        Scanned s;
        s.tree = driver.ReleaseTree();
        s.file = FirstFileWithData(s.tree.get());
        ASSERT_NE(s.file, nullptr) << "partition " << index + 1;
        const VolumeHandle* volume = VolumeOf(*s.file);
        ASSERT_NE(volume, nullptr);
        EXPECT_EQ(volume->firstSector, src.media->GetFirstSector());
        s.fsKind = volume->fsKind;
        // Read while the media still selects this volume: what the file holds.
        s.expected = Content(*src.media, *s.file);
        ASSERT_FALSE(s.expected.empty());
        scans.push_back(std::move(s));
    }
    EXPECT_NE(scans[0].fsKind, scans[1].fsKind);
    // The media now selects the last volume, then the whole disk: every file reads the same.
    for (bool whole : {false, true}) {
        if (whole) SelectWholeSource(src);
        for (size_t i = 0; i < scans.size(); ++i)
            EXPECT_EQ(Content(*src.media, *scans[i].file), scans[i].expected) << "volume " << i << " whole " << whole;
    }
    // A session stores the volume its tree was found on, not the media's selection (the whole
    // disk now), and its items read back through that volume.
    for (size_t i = 0; i < scans.size(); ++i) {
        const std::string path = ::testing::TempDir() + "kestrin-volume-" + std::to_string(i) + ".tks4";
        std::remove(path.c_str());
        CSilentMessages quiet;
        ASSERT_TRUE(WriteScanSession(path, RecoveryMode::DeletedFiles, *src.media, scans[i].tree.get(), quiet, false));
        SessionData session;
        ASSERT_TRUE(ReadSession(path, {}, session, quiet)) << path;
        ASSERT_TRUE(session.media && session.top);
        const CNode* file = FirstFileWithData(session.top.get());
        ASSERT_NE(file, nullptr);
        ASSERT_NE(VolumeOf(*file), nullptr);
        EXPECT_EQ(VolumeOf(*file)->fsKind, scans[i].fsKind);
        EXPECT_EQ(Content(*session.media, *file), scans[i].expected) << "session of volume " << i;
        std::remove(path.c_str());
    }
}

// The preparation of the lost-partition search reads the table again into the media's lists and
// leaves the selection (a chosen partition, in formatted mode) as it was.
TEST(EngineRun, PreparationLeavesTheSelectionAlone) {
    std::string img = test::UnpackImage("disk-mbr-small");
    ASSERT_FALSE(img.empty());
    OpenedSource src;
    std::string error;
    ASSERT_TRUE(OpenSource(img, src, error)) << error;
    ASSERT_TRUE(SelectListedPartition(src, 1));
    CPhysicalDisk& media = *src.media;
    const uint64_t first = media.GetFirstSector(), count = media.GetSectorCount();
    const SourceKind source = media.GetSourceKind();
    const FsKind fs = media.GetFsKind();
    media.SecondPartitions().clear();
    media.Partitions().clear();
    ScanOperation op;
    QuietScanEvents events;
    PauseGate gate;
    ScanContext ctx{op, events, gate};
    EXPECT_EQ(MakeEngines().preparation(media, ctx), Outcome::Ok);
    EXPECT_EQ(media.Partitions().size(), 4u); // the placeholder head and the three table entries
    EXPECT_EQ(media.GetFirstSector(), first);
    EXPECT_EQ(media.GetSectorCount(), count);
    EXPECT_EQ(media.GetSourceKind(), source);
    EXPECT_EQ(media.GetFsKind(), fs);
}
