#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <thread>

#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "scan/CScanDriver.h"
#include "scan/ProgressRule.h"
#include "storage/CPhysicalDisk.h"

using namespace kestrin;

namespace {

struct Events : IScanEvents {
    std::atomic<int> ends{0}, progress{0};
    std::mutex m;
    std::vector<std::string> notices;
    void OnEnd() override { ++ends; }
    void OnProgress() override { ++progress; }
    void OnSignatureScanStart() override {}
    void OnNotice(const UserText& t) override {
        std::lock_guard lk(m);
        notices.push_back(t.id + " " + t.arg);
    }
};

// A media of 1000 sectors in memory, with the given source kind and first sector.
struct Media {
    CPhysicalDisk disk;
    explicit Media(SourceKind sourceKind, uint64_t first = 0) {
        disk.Attach(std::make_unique<MemorySource>(std::vector<uint8_t>(512 * 1100)));
        disk.SetSectorSize(512);
        disk.SetFirstSector(first);
        disk.SetSectorCount(1000);
        disk.SetSourceKind(sourceKind);
    }
};

// Fake engines that log their calls ("fs", "sig 2 0 1000", ...) in order.
struct Log {
    std::mutex m;
    std::vector<std::string> calls;
    void Add(std::string s) {
        std::lock_guard lk(m);
        calls.push_back(std::move(s));
    }
};

Engines LoggingEngines(Log& log) {
    Engines e;
    e.fileSystemScan = [&log](CPhysicalDisk&, int mode, ScanContext& ctx) {
        log.Add("fs " + std::to_string(mode));
        ScanEntry* root = MakeVolumeRoot(5);
        ScanEntry* f = NewScanEntry(u"a.txt", 1, 30, 5);
        ScanEntry* p = NewScanEntry(u"b.JPG", 0, 31, 5);
        f->parent = p->parent = root;
        root->firstChild->nextSibling = f;
        f->nextSibling = p;
        AttachVolume(ctx.top, root);
        return Outcome::Ok;
    };
    e.signatureScan = [&log](CPhysicalDisk&, uint32_t kind, uint64_t first, uint64_t end, ScanContext&) {
        log.Add("sig " + std::to_string(kind) + " " + std::to_string(first) + " " + std::to_string(end));
        return Outcome::Ok;
    };
    auto logged = [&log](const char* what) {
        return [&log, what](CPhysicalDisk&, ScanContext&) {
            log.Add(what);
            return Outcome::Ok;
        };
    };
    e.preparation = logged("prep");
    e.diskRecordSearch = [&log](CPhysicalDisk&, uint64_t first, uint64_t end, ScanContext&) {
        log.Add("search " + std::to_string(first) + " " + std::to_string(end));
        return Outcome::Ok;
    };
    e.secondFileSystemScan = logged("smart");
    e.createImage = logged("image");
    e.saveToFolder = logged("save");
    return e;
}

} // namespace

TEST(OperationRules, KindForEveryModeAndSource) {
    const RecoveryMode modes[] = {RecoveryMode::DeletedFiles, RecoveryMode::LostFiles, RecoveryMode::Partition, RecoveryMode::Formatted, RecoveryMode::DeletedPhotos, RecoveryMode::LostPhotos};
    // Rows: source kinds 1 to 6; columns: the modes above.
    const int expected[6][6] = {
        {0, 0, 0, 0, 0, 0}, // partition of a disk
        {0, 0, 0, 0, 0, 0}, // partition of a disk (second form)
        {2, 4, 2, 2, 2, 4}, // physical disk: 1020 and 1038 go straight to the signature scan
        {0, 0, 0, 2, 0, 0}, // volume: the formatted mode searches for previous file systems
        {0, 0, 0, 0, 0, 0}, // partition inside an image
        {2, 2, 2, 2, 2, 4}, // image file: only 1038 skips the partition search
    };
    for (int s = 0; s < 6; ++s)
        for (int m = 0; m < 6; ++m)
            EXPECT_EQ(ChooseOperationKind(modes[m], SourceKind(s + 1)), OperationKind(expected[s][m]))
                << "source " << s + 1 << " mode " << uint32_t(modes[m]);
    EXPECT_EQ(ChooseOperationKind(RecoveryMode(1020), SourceKind::PhysicalDisk, true), OperationKind::CreateImage); // kept pending
    EXPECT_EQ(ChooseOperationKind(RecoveryMode(1019), SourceKind(0)), std::nullopt);
    EXPECT_EQ(ChooseOperationKind(RecoveryMode(1019), SourceKind(7)), std::nullopt);

    EXPECT_FALSE(IsLostDataMode(RecoveryMode(1019)));
    for (uint32_t m : {1020u, 1021u, 1022u, 1037u, 1038u}) EXPECT_TRUE(IsLostDataMode(RecoveryMode(m)));
    EXPECT_FALSE(IsLostDataMode(RecoveryMode(1023)));
    EXPECT_FALSE(IsLostDataMode(RecoveryMode(1036)));

    EXPECT_EQ(StatusTextId(OperationKind::FileSystemScan, RecoveryMode(1019), SourceKind::Volume), "IDS_SEARCHING_DELETED_FILES_FOLDERS");
    EXPECT_EQ(StatusTextId(OperationKind::FileSystemScan, RecoveryMode(1020), SourceKind::ImagePartition), "IDS_SEARCHING_LOST_DATA");
    EXPECT_EQ(StatusTextId(OperationKind::FileSystemScan, RecoveryMode(1037), SourceKind::DiskPartition1), "IDS_SEARCHING_MUSIC_VIDEO_PHOTOS");
    EXPECT_EQ(StatusTextId(OperationKind::PartitionSearch, RecoveryMode(1022), SourceKind::Volume), "IDS_SEARCHING_PREVIOUS_FILE_SYSTEM");
    EXPECT_EQ(StatusTextId(OperationKind::PartitionSearch, RecoveryMode(1021), SourceKind::ImageFile), "IDS_SEARCHING_LOST_PARTITIONS");
    EXPECT_EQ(StatusTextId(OperationKind::SignatureScan, RecoveryMode(1038), SourceKind::PhysicalDisk), "IDS_SEARCHING_MUSIC_VIDEO_PHOTOS");
    EXPECT_EQ(StatusTextId(OperationKind::SignatureScan, RecoveryMode(1020), SourceKind::PhysicalDisk), "IDS_PROCESSING_PHYSICAL_DRIVE");
}

TEST(ScanDriver, StagesInOrderPerKindAndMode) {
    struct Case {
        SourceKind source;
        RecoveryMode mode;
        uint64_t first;
        std::vector<std::string> calls;
    };
    const Case cases[] = {
        // Deleted files on a volume: the file-system scan only (deleted-only).
        {SourceKind::Volume, RecoveryMode(1019), 0, {"fs 1"}},
        // Lost files on the same volume: the signature scan follows the file-system scan.
        {SourceKind::Volume, RecoveryMode(1020), 0, {"fs 1", "sig 2 0 1000"}},
        // A partition inside an image: the signature scan covers the partition's own sectors.
        {SourceKind::ImagePartition, RecoveryMode(1021), 2048, {"fs 1", "sig 2 2048 3048"}},
        {SourceKind::ImageFile, RecoveryMode(1021), 0, {"prep", "search 0 1000"}},
        {SourceKind::Volume, RecoveryMode(1022), 0, {"prep", "search 0 1000"}},
        // Lost photos on a physical disk: only the signature scan.
        {SourceKind::PhysicalDisk, RecoveryMode(1038), 0, {"sig 2 0 1000"}},
    };
    for (const auto& c : cases) {
        Media m(c.source, c.first);
        Log log;
        Events ev;
        CScanDriver d(m.disk, LoggingEngines(log), ev);
        ASSERT_TRUE(d.StartForSource(c.mode));
        d.Wait();
        EXPECT_EQ(log.calls, c.calls) << "source " << int(c.source) << " mode " << uint32_t(c.mode);
        EXPECT_EQ(d.Operation().deletedOnly.load(), c.mode == RecoveryMode::DeletedFiles ? 1 : 0);
        EXPECT_EQ(d.Operation().state.load(), OperationState::Finished);
        EXPECT_EQ(ev.ends.load(), 1);
        EXPECT_TRUE(ev.notices.empty());
    }
}

TEST(ScanDriver, MissingEngineIsReportedNotSkipped) {
    Media m(SourceKind::Volume);
    Log log;
    Events ev;
    Engines e = LoggingEngines(log);
    e.signatureScan = nullptr;
    CScanDriver d(m.disk, e, ev);
    ASSERT_EQ(d.StartForSource(RecoveryMode(1020)), OperationKind::FileSystemScan);
    d.Wait();
    EXPECT_EQ(log.calls, std::vector<std::string>{"fs 1"});
    ASSERT_EQ(d.MissingStages().size(), 1u);
    EXPECT_EQ(ev.notices.size(), 1u);
    EXPECT_EQ(d.StagesRun(), (std::vector<Stage>{Stage::FileSystemScan, Stage::SignatureScan}));
}

TEST(ScanDriver, PhotoModePrunesNonMediaFiles) {
    Media m(SourceKind::Volume);
    Log log;
    Events ev;
    CScanDriver d(m.disk, LoggingEngines(log), ev);
    ASSERT_EQ(d.StartForSource(RecoveryMode(1037)), OperationKind::FileSystemScan);
    d.Wait();
    CNode* vol = FindVolumeRoot(d.Top());
    ASSERT_NE(vol, nullptr);
    // "Lost" was empty and goes; a.txt is not a media file; b.JPG stays.
    ASSERT_NE(vol->firstChild, nullptr);
    EXPECT_EQ(vol->firstChild->name, u"b.JPG");
    EXPECT_EQ(vol->firstChild->nextSibling, nullptr);
}

// An engine that polls the state in a loop, counting its polls, until it is told to stop.
struct PollingEngine {
    std::atomic<uint64_t> polls{0};
    std::atomic<bool> signatureRan{false};
    Engines Make() {
        Engines e;
        e.fileSystemScan = [this](CPhysicalDisk&, int, ScanContext& ctx) {
            while (!ctx.StopRequested()) {
                ++polls;
                ctx.Progress(int64_t(polls.load()), 1 << 30);
                std::this_thread::yield();
            }
            return Outcome::Stopped;
        };
        e.signatureScan = [this](CPhysicalDisk&, uint32_t, uint64_t, uint64_t, ScanContext&) {
            signatureRan = true;
            return Outcome::Ok;
        };
        return e;
    }
};

TEST(ScanDriver, CancelQuestionHoldsTheWorkerAndNoResumes) {
    Media m(SourceKind::Volume);
    Events ev;
    PollingEngine eng;
    CScanDriver d(m.disk, eng.Make(), ev);
    ASSERT_EQ(d.StartForSource(RecoveryMode(1020)), OperationKind::FileSystemScan);
    while (eng.polls.load() < 100) std::this_thread::yield();

    d.BeginCancelQuestion();
    ASSERT_TRUE(d.Gate().WaitForWorkerHeld(5000));
    uint64_t held = eng.polls.load();
    int progressHeld = ev.progress.load();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(eng.polls.load(), held) << "the worker advanced while the question was open";
    EXPECT_EQ(ev.progress.load(), progressHeld);
    EXPECT_TRUE(d.Running());

    d.AnswerCancelQuestion(false);
    while (eng.polls.load() < held + 100) std::this_thread::yield();
    EXPECT_EQ(d.Operation().state.load(), OperationState::Running);
    EXPECT_FALSE(d.CancelConfirmed());

    d.BeginCancelQuestion();
    ASSERT_TRUE(d.Gate().WaitForWorkerHeld(5000));
    held = eng.polls.load();
    d.AnswerCancelQuestion(true);
    d.Wait();
    // Yes: the engine stopped at the poll it was held in, the follow-on scan was skipped and the
    // worker ended normally.
    EXPECT_EQ(eng.polls.load(), held);
    EXPECT_FALSE(eng.signatureRan.load());
    EXPECT_TRUE(d.CancelConfirmed());
    EXPECT_EQ(d.Operation().state.load(), OperationState::Finished);
    EXPECT_EQ(ev.ends.load(), 1);
    EXPECT_NE(d.Top(), nullptr);
}

TEST(ScanDriver, RecordSearchThatBuildsATreeHasFoundSomething) {
    Media m(SourceKind::Volume);
    Log log;
    Events ev;
    Engines e = LoggingEngines(log);
    bool withFile = false;
    e.diskRecordSearch = [&withFile](CPhysicalDisk&, uint64_t, uint64_t, ScanContext& ctx) {
        ScanEntry* root = MakeVolumeRoot(5);
        if (withFile) {
            ScanEntry* f = NewScanEntry(u"old.doc", 0, 40, 5);
            f->parent = LostFolderOf(root);
            LostFolderOf(root)->firstChild = f;
        }
        AttachVolume(ctx.top, root);
        return Outcome::Ok;
    };
    for (bool file : {false, true}) {
        withFile = file;
        CScanDriver d(m.disk, e, ev);
        ASSERT_EQ(d.StartForSource(RecoveryMode(1022)), OperationKind::PartitionSearch); // a volume in the formatted mode
        d.Wait();
        EXPECT_EQ(d.NoPartitionFound(), !file);
        EXPECT_FALSE(d.Operation().deletedOnly.load());
    }
}

TEST(ScanDriver, PartitionSearchThatFindsNothingHandsOverToKind4) {
    for (bool findOne : {false, true}) {
        Media m(SourceKind::ImageFile);
        Log log;
        Events ev;
        Engines e = LoggingEngines(log);
        e.diskRecordSearch = [&log, findOne](CPhysicalDisk& media, uint64_t, uint64_t, ScanContext&) {
            log.Add("search");
            PartitionRecord unknown; // a table entry of an unknown kind does not count
            media.Partitions().push_back(unknown);
            if (findOne) {
                PartitionRecord r;
                r.fsKind = FsKind::Ntfs;
                r.startSector = 63;
                media.SecondPartitions().push_back(r);
            }
            return Outcome::Ok;
        };
        CScanDriver d(m.disk, e, ev);
        ASSERT_EQ(d.StartForSource(RecoveryMode(1020)), OperationKind::PartitionSearch);
        d.Wait();
        EXPECT_TRUE(d.CompletionFlag());
        EXPECT_EQ(d.NoPartitionFound(), !findOne);
        if (findOne) continue;
        CNode* top = d.Top();
        ASSERT_TRUE(d.ContinueAsSignatureScan());
        d.Wait();
        EXPECT_EQ(d.Kind(), OperationKind::SignatureScan);
        EXPECT_TRUE(d.SkipFlag());
        EXPECT_EQ(d.Top(), top);
        EXPECT_EQ(log.calls, (std::vector<std::string>{"prep", "search", "sig 2 0 1000"}));
        EXPECT_EQ(ev.ends.load(), 2);
    }
}

TEST(ProgressRule, TruncatesShowsNinetyNineAsDoneAndRepaintsOnChange) {
    EXPECT_EQ(ShownPercent(5, 0), 0u);
    EXPECT_EQ(ShownPercent(0, 100), 0u);
    EXPECT_EQ(ShownPercent(989, 1000), 98u);
    EXPECT_EQ(ShownPercent(990, 1000), 100u);
    EXPECT_EQ(ShownPercent(2, 3), 66u);
    EXPECT_EQ(ShownPercent(5000, 1000), 100u);
    ProgressRule r;
    EXPECT_EQ(r.Update(0, 0), std::optional<unsigned>(0));
    EXPECT_EQ(r.Update(1, 1000), std::nullopt);
    EXPECT_EQ(r.Update(10, 1000), std::optional<unsigned>(1));
    EXPECT_EQ(r.Update(19, 1000), std::nullopt);
    EXPECT_EQ(r.Update(995, 1000), std::optional<unsigned>(100));
    EXPECT_EQ(r.Update(1000, 1000), std::nullopt);
    EXPECT_EQ(FormatTotalCompleted("Total completed", 7), "Total completed: 7%");
    EXPECT_EQ(FormatTotalCompleted("T", 7, true), "T: 07%");
    EXPECT_EQ(FormatElapsed(3 * 3600 + 2 * 60 + 1), " : 03:02:01");
}
