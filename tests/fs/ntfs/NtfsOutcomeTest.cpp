// How the MFT walk and the record search end: malformed records, failed reads, a source that goes
// away mid-walk and a stop, each told apart in the outcome, with what was found before kept.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "FailingSources.h"
#include "NtfsBuilder.h"
#include "NtfsTestSupport.h"
#include "fs/ntfs/NtfsLayout.h"
#include "platform/Platform.h"
#include "storage/ByteSource.h"
#include "storage/CPhysicalDisk.h"

using namespace kestrin;
using namespace kestrin::test;

namespace {

// Calls a hook on every progress report.
struct HookedEvents final : IScanEvents {
    std::function<void()> onProgress;
    void OnEnd() override {}
    void OnSignatureScanStart() override {}
    void OnProgress() override {
        if (onProgress) onProgress();
    }
};

constexpr uint32_t kRecords = 256; // four batches of the walk (64 records of 1024 bytes each)
constexpr uint64_t kMftByte = VolumeBuilder::kMftCluster * VolumeBuilder::kCluster;
// The files, one in each batch of the walk.
constexpr uint32_t kFileRecords[] = {30, 70, 140, 200};

uint64_t BatchByte(uint32_t batch) { return kMftByte + uint64_t(batch) * 64 * 1024; }

// A 1 MiB volume whose MFT holds 256 records, with one file in each batch of 64.
VolumeBuilder FourBatchVolume() {
    VolumeBuilder v;
    v.SetRecord(0, RecordBuilder(0)
                       .StdInfo()
                       .FileName(5, u"$MFT")
                       .NonResident(0x80, EncodeRuns({{kRecords / 4, int64_t(VolumeBuilder::kMftCluster)}}),
                                    kRecords * 1024ull, 0, kRecords / 4 - 1)
                       .Finish());
    // Resident data long enough to carry the record past its first protected sector.
    const std::vector<uint8_t> data(600, 'x');
    for (uint32_t n : kFileRecords) {
        std::u16string name = u"f" + ToUtf16(std::to_string(n));
        v.SetRecord(n, RecordBuilder(n).StdInfo().FileName(5, name).Resident(0x80, data).Finish());
    }
    // Formatted but never used, as the file system leaves its spare records: not malformed.
    for (uint32_t n = 40; n < 48; ++n) v.SetRecord(n, RecordBuilder(n, 0).Finish());
    return v;
}

struct FlakyRun {
    CPhysicalDisk media;
    FlakySource* source = nullptr;
    HookedEvents events;
    ScanOperation op;
    PauseGate gate;
    ScanContext ctx{op, events, gate};
    std::unique_ptr<CNode> top{MakeTopNode()};

    FlakyRun(std::vector<uint8_t> image, uint64_t failFrom = 0, uint64_t failTo = 0, uint32_t code = 0) {
        uint64_t sectors = image.size() / 512;
        auto src = std::make_unique<FlakySource>(std::move(image), failFrom, failTo, code);
        source = src.get();
        media.Attach(std::move(src));
        media.SetSectorSize(512);
        media.SetSectorCount(sectors);
        media.SetFirstSector(0);
        ctx.top = top.get();
        op.state = OperationState::Running;
    }
    // The files found, by record number, in record order.
    std::vector<uint32_t> Files() const {
        std::vector<uint32_t> out;
        for (auto& l : ListTree(FindVolumeRoot(top.get())))
            if (!(l.flags & kNodeFolder)) out.push_back(l.recordId);
        std::sort(out.begin(), out.end());
        return out;
    }
};

} // namespace

TEST(NtfsOutcome, MftWalkTellsFailuresApart) {
    const uint32_t kDataError = platform::kErrNotReady + 2;
    struct Case {
        const char* what;
        uint64_t failFrom, failTo;
        uint32_t code;
        Outcome outcome;
        std::vector<uint32_t> files;
    } cases[] = {
        {"clean", 0, 0, 0, Outcome::Ok, {30, 70, 140, 200}},
        // A plain read error loses that batch; the walk goes on past it.
        {"read error in batch 1", BatchByte(1), BatchByte(1) + 1024, kDataError, Outcome::ReadFailed, {30, 140, 200}},
        // The source goes away at batch 2: what the first two batches held stays.
        {"gone at batch 2", BatchByte(2), BatchByte(2) + 1024, platform::kErrDeviceGone, Outcome::DeviceGone, {30, 70}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        FlakyRun run(FourBatchVolume().Image(), c.failFrom, c.failTo, c.code);
        Outcome outcome = NtfsScanVolume(run.media, 1, run.ctx);
        EXPECT_EQ(outcome, c.outcome) << OutcomeName(outcome);
        EXPECT_EQ(run.Files(), c.files);
        // Nothing is read, let alone parsed, once the source has gone.
        EXPECT_EQ(run.source->readsAfterGone, 0);
        EXPECT_EQ(run.op.state.load(), OperationState::Running);
    }
}

TEST(NtfsOutcome, MalformedRecordsMakeTheWalkCorruptButStayOutOfTheListing) {
    struct Case {
        const char* what;
        std::function<void(VolumeBuilder&)> spoil;
    } cases[] = {
        // The update-sequence number at the end of the first sector no longer matches.
        {"torn record", [](VolumeBuilder& v) { v.RecordBytes(70)[510] ^= 0xFF; }},
        {"attribute running past bytes in use", [](VolumeBuilder& v) {
             namespace nl = layout::ntfs;
             uint8_t* rec = v.RecordBytes(70);
             nl::attr::Length::Put(rec + nl::file_record::FirstAttribute::At(rec), 0x400);
         }},
        {"record marked bad", [](VolumeBuilder& v) { std::memcpy(v.RecordBytes(70), "BAAD", 4); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        VolumeBuilder v = FourBatchVolume();
        c.spoil(v);
        FlakyRun run(v.Image());
        EXPECT_EQ(NtfsScanVolume(run.media, 1, run.ctx), Outcome::Corrupt);
        EXPECT_EQ(run.Files(), (std::vector<uint32_t>{30, 140, 200}));
    }
}

TEST(NtfsOutcome, StopDuringTheWalkEndsItWithoutTouchingTheState) {
    FlakyRun run(FourBatchVolume().Image());
    int reports = 0;
    run.events.onProgress = [&] {
        if (++reports == 2) run.op.state = OperationState::Cancel;
    };
    EXPECT_EQ(NtfsScanVolume(run.media, 1, run.ctx), Outcome::Stopped);
    EXPECT_EQ(reports, 2);
    EXPECT_EQ(run.Files(), (std::vector<uint32_t>{30, 70}));
    EXPECT_EQ(run.op.state.load(), OperationState::Cancel);
}

TEST(NtfsOutcome, RecordSearchStopsWhenTheSourceGoes) {
    // The search reads 4 MiB steps (each with a 64 KiB tail): the first holds the MFT, the second
    // meets the failure and the third is never read.
    std::vector<uint8_t> image = FourBatchVolume().Image();
    ASSERT_LT(image.size(), 4u << 20);
    image.resize(12u << 20, 0);
    const uint64_t failAt = 5u << 20;
    FlakyRun gone(std::move(image), failAt, failAt + 512, platform::kErrDeviceGone);
    EXPECT_EQ(NtfsSearchRecords(gone.media, 0, gone.media.GetSectorCount(), gone.ctx), Outcome::DeviceGone);
    EXPECT_EQ(gone.Files(), (std::vector<uint32_t>{30, 70, 140, 200}));
    EXPECT_EQ(gone.source->readsAfterGone, 0);

    FlakyRun stopped(FourBatchVolume().Image());
    stopped.events.onProgress = [&] { stopped.op.state = OperationState::Cancel; };
    EXPECT_EQ(NtfsSearchRecords(stopped.media, 0, stopped.media.GetSectorCount(), stopped.ctx), Outcome::Stopped);
    EXPECT_EQ(stopped.op.state.load(), OperationState::Cancel);
}
