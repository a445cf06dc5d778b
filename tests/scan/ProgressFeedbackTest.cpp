// What the progress display is made of: the elapsed time without open questions, the rate and
// the estimate that appears only once the rate has settled, the fields' texts, and the line each
// stage runs under in every mode and source.
#include <gtest/gtest.h>

#include <cmath>
#include <mutex>
#include <string>

#include "scan/CScanDriver.h"
#include "scan/ProgressRule.h"
#include "storage/CPhysicalDisk.h"

using namespace kestrin;

TEST(ProgressMeter, ElapsedTimeLeavesOutOpenQuestions) {
    ProgressMeter m;
    m.Start(100.0);
    m.Sample(102.0, 20, 1000, 512);
    m.Pause(103.0);
    EXPECT_DOUBLE_EQ(m.Elapsed(150.0), 3.0); // the clock stands while the question is open
    m.Sample(150.0, 20, 1000, 512);           // samples under the question change nothing
    m.Resume(160.0);
    EXPECT_DOUBLE_EQ(m.Elapsed(161.0), 4.0);
    m.Pause(170.0);
    m.Pause(175.0); // a second pause does not move the first
    m.Resume(180.0);
    EXPECT_DOUBLE_EQ(m.Elapsed(180.0), 13.0);
}

TEST(ProgressMeter, EstimateOnlyOnceTheRateIsSteady) {
    ProgressMeter m;
    m.Start(0);
    // 100 units a second: the rate shows after a second, the estimate after a few steady ones.
    std::optional<uint64_t> firstLeft;
    double firstAt = -1;
    for (int i = 1; i <= 20; ++i) {
        double t = i * 0.5;
        m.Sample(t, int64_t(t * 100), 10000, 0);
        if (t < 1.0) {
            EXPECT_FALSE(m.Rate());
        }
        if (t < 3.0) {
            EXPECT_FALSE(m.SecondsLeft()) << t;
        }
        if (!firstLeft && m.SecondsLeft()) {
            firstLeft = m.SecondsLeft();
            firstAt = t;
        }
    }
    ASSERT_TRUE(firstLeft);
    EXPECT_LE(firstAt, 5.0);
    ASSERT_TRUE(m.Rate());
    EXPECT_NEAR(*m.Rate(), 100.0, 1.0);
    EXPECT_NEAR(double(*m.SecondsLeft()), 90.0, 1.0); // (10000 - 1000) / 100

    // A stalled question in the middle does not lower the rate.
    m.Pause(10.0);
    m.Resume(40.0);
    m.Sample(41.0, 1100, 10000, 0);
    EXPECT_NEAR(*m.Rate(), 100.0, 1.0);

    // A new stage (another total) starts without a rate or an estimate.
    m.Sample(42.0, 0, 500, 512);
    EXPECT_FALSE(m.Rate());
    EXPECT_FALSE(m.SecondsLeft());
}

TEST(ProgressMeter, NoEstimateWhileTheRateJumps) {
    ProgressMeter m;
    m.Start(0);
    // A rate that doubles every second never settles, so no estimate is made up from it.
    for (int i = 1; i <= 30; ++i) {
        double t = i * 0.5;
        m.Sample(t, int64_t(10 * std::exp2(t)), 1000000000, 512);
        EXPECT_FALSE(m.SecondsLeft()) << t;
    }
    EXPECT_TRUE(m.Rate());
}

TEST(ProgressText, AmountsRatesAndFoundCounts) {
    ProgressWords w;
    EXPECT_EQ(FormatBytesShort(999), "999 B");
    EXPECT_EQ(FormatBytesShort(1536), "1.5 KB");
    EXPECT_EQ(FormatBytesShort(3ull << 30), "3.0 GB");
    EXPECT_EQ(FormatAmount(2048, 8388608, 512, w), "1.0 MB of 4.0 GB");
    EXPECT_EQ(FormatAmount(12345, 100000, 0, w), "12,345 of 100,000 records");
    EXPECT_EQ(FormatAmount(7, 0, 0, w), "7 records");
    // A claimed total beyond any byte count saturates instead of wrapping to something small.
    EXPECT_EQ(FormatAmount(0, INT64_MAX, 4096, w).substr(0, 7), "0 B of ");
    EXPECT_NE(FormatAmount(0, INT64_MAX, 4096, w).find("PB"), std::string::npos);
    // Records per second are spelled out: never "k" or "M" in front of records.
    EXPECT_EQ(FormatRate(5432.4, 0, w), "5,432 records/s");
    EXPECT_EQ(FormatRate(1234567.0, 0, w), "1,234,567 records/s");
    EXPECT_EQ(FormatRate(2048.0 * 20, 512, w), "20.0 MB/s");
    EXPECT_EQ(FormatRate(2048.0 * 150, 512, w), "150 MB/s");
    EXPECT_EQ(FormatRate(-3, 512, w), "0.0 MB/s");
    EXPECT_EQ(FormatFound(1200, 56, 112, w), "1,312 files (56 deleted, 112 carved)");
}

namespace {

struct StatusEvents : IScanEvents {
    std::mutex m;
    std::string status;
    void OnEnd() override {}
    void OnProgress() override {}
    void OnSignatureScanStart() override {}
    void OnStatus(const UserText& t) override {
        std::lock_guard lk(m);
        status = t.id;
    }
    std::string Status() {
        std::lock_guard lk(m);
        return status;
    }
};

} // namespace

// Every stage of every mode on every source runs under a line that names what it does: the
// search by content never calls itself a partition search or a file-system scan.
TEST(StageTitles, EveryModeAndSourceNamesItsStages) {
    const RecoveryMode modes[] = {RecoveryMode::DeletedFiles, RecoveryMode::LostFiles,     RecoveryMode::Partition,
                                  RecoveryMode::Formatted,    RecoveryMode::DeletedPhotos, RecoveryMode::LostPhotos};
    for (int source = 1; source <= 6; ++source) {
        for (RecoveryMode mode : modes) {
            CPhysicalDisk disk;
            disk.Attach(std::make_unique<MemorySource>(std::vector<uint8_t>(512 * 64)));
            disk.SetSectorSize(512);
            disk.SetSectorCount(64);
            disk.SetSourceKind(SourceKind(source));
            StatusEvents ev;
            std::vector<std::pair<std::string, std::string>> seen; // stage, line
            Engines e;
            e.fileSystemScan = [&](CPhysicalDisk&, int, ScanContext& ctx) {
                seen.emplace_back("fs", ev.Status());
                ctx.op.found.NoteFile(true);
                return Outcome::Ok;
            };
            e.signatureScan = [&](CPhysicalDisk&, uint32_t, uint64_t, uint64_t, ScanContext&) {
                seen.emplace_back("sig", ev.Status());
                return Outcome::Ok;
            };
            e.preparation = [&](CPhysicalDisk&, ScanContext&) {
                seen.emplace_back("prep", ev.Status());
                return Outcome::Ok;
            };
            e.diskRecordSearch = [&](CPhysicalDisk&, uint64_t, uint64_t, ScanContext&) {
                seen.emplace_back("search", ev.Status());
                return Outcome::Ok;
            };
            CScanDriver d(disk, e, ev);
            auto kind = d.StartForSource(mode);
            ASSERT_TRUE(kind);
            d.Wait();
            // The search that found nothing goes on over the whole drive, with the same tree.
            if (kind == OperationKind::PartitionSearch) {
                ASSERT_TRUE(d.ContinueAsSignatureScan());
                d.Wait();
            }
            const bool photo = mode == RecoveryMode::DeletedPhotos || mode == RecoveryMode::LostPhotos;
            const std::string where = "source " + std::to_string(source) + " mode " + std::to_string(uint32_t(mode));
            ASSERT_FALSE(seen.empty()) << where;
            for (const auto& [stage, line] : seen) {
                if (stage == "sig") {
                    // The whole-drive search names the photo search only where it is one from
                    // the start (lost photos); after a partition search it scans the drive.
                    const bool photoLine = kind == OperationKind::FileSystemScan ? photo : mode == RecoveryMode::LostPhotos;
                    const char* want = photoLine                               ? "IDS_SEARCHING_MUSIC_VIDEO_PHOTOS"
                                       : kind == OperationKind::FileSystemScan ? "IDS_SEARCHING_BY_CONTENT"
                                                                               : "IDS_PROCESSING_PHYSICAL_DRIVE";
                    EXPECT_EQ(line, want) << where;
                } else if (stage == "fs") {
                    bool partition = source == 1 || source == 2 || source == 5;
                    EXPECT_EQ(line, photo       ? "IDS_SEARCHING_MUSIC_VIDEO_PHOTOS"
                                    : partition ? "IDS_SEARCHING_LOST_DATA"
                                                : "IDS_SEARCHING_DELETED_FILES_FOLDERS")
                        << where;
                } else {
                    EXPECT_EQ(line, mode == RecoveryMode::Formatted ? "IDS_SEARCHING_PREVIOUS_FILE_SYSTEM"
                                                                    : "IDS_SEARCHING_LOST_PARTITIONS")
                        << where;
                }
            }
            // Each stage starts its progress from nothing.
            EXPECT_EQ(d.Operation().total.load(), 0) << where;
        }
    }
}

// Found counts belong to the tree: a new operation starts from none, the whole-drive scan that
// follows an empty partition search keeps them.
TEST(StageTitles, FoundCountsFollowTheTree) {
    CPhysicalDisk disk;
    disk.Attach(std::make_unique<MemorySource>(std::vector<uint8_t>(512 * 64)));
    disk.SetSectorSize(512);
    disk.SetSectorCount(64);
    disk.SetSourceKind(SourceKind::ImageFile);
    StatusEvents ev;
    Engines e;
    e.preparation = [](CPhysicalDisk&, ScanContext& ctx) {
        ctx.op.found.NoteFile(false);
        return Outcome::Ok;
    };
    e.diskRecordSearch = [](CPhysicalDisk&, uint64_t, uint64_t, ScanContext&) { return Outcome::Ok; };
    e.signatureScan = [](CPhysicalDisk&, uint32_t, uint64_t, uint64_t, ScanContext& ctx) {
        ctx.op.found.NoteCarved();
        return Outcome::Ok;
    };
    CScanDriver d(disk, e, ev);
    ASSERT_EQ(d.StartForSource(RecoveryMode::Partition), OperationKind::PartitionSearch);
    d.Wait();
    ASSERT_TRUE(d.ContinueAsSignatureScan());
    d.Wait();
    EXPECT_EQ(d.Operation().found.files.load(), 1u);
    EXPECT_EQ(d.Operation().found.carved.load(), 1u);
    CScanDriver fresh(disk, e, ev);
    fresh.Operation().found.NoteFile(true); // left over from nothing: a new tree clears it
    ASSERT_TRUE(fresh.Start(OperationKind::SignatureScan, RecoveryMode::LostFiles));
    fresh.Wait();
    EXPECT_EQ(fresh.Operation().found.files.load(), 0u);
    EXPECT_EQ(fresh.Operation().found.carved.load(), 1u);
}
