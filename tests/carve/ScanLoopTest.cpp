// The signature loop's rules, driven with user signatures over in-memory images.
#include <gtest/gtest.h>

#include "CarveTestUtil.h"
#include "carve/CScanner.h"
#include "platform/Platform.h"
#include "util/Bytes.h"

namespace kestrin::test {
namespace {

constexpr uint32_t kSector = 512;
// Sectors per chunk of the loop (512-byte sectors).
constexpr uint64_t kChunk = kSignatureChunkSectors;
const std::vector<uint8_t> kMagic = {'K', 'M', 'A', 'G'};

std::vector<uint8_t> Image(uint64_t sectors) { return std::vector<uint8_t>(sectors * kSector, 0); }

void Mark(std::vector<uint8_t>& image, uint64_t sector, const std::vector<uint8_t>& bytes = kMagic,
          uint32_t offset = 0) {
    Put(image, sector * kSector + offset, bytes);
}

TEST(ScanLoop, ZeroShortcutFirstWinsAndOneHitPerSector) {
    ScanRun run;
    auto image = Image(40);
    Mark(image, 3);
    // A signature further into the sector: offered only when the first 8 bytes are not all zero.
    Mark(image, 7, {'D', 'E', 'E', 'P'}, 100);
    Mark(image, 9, {'D', 'E', 'E', 'P'}, 100);
    image[9 * kSector + 7] = 1;
    AttachMemory(run.disk, std::make_unique<MemorySource>(image));
    run.rows = {UserRecord(kMagic, ".one", 1000), UserRecord(kMagic, ".two", 2000),
                UserRecord({'D', 'E', 'E', 'P'}, ".deep", 10, 100)};
    run.Run();
    EXPECT_EQ(run.Files(), (std::vector<std::string>{"deep[1-1000]/file#1.deep@9:10", "one[1-1000]/file#1.one@3:1000"}));
    EXPECT_EQ(run.events.starts, 1);
    EXPECT_EQ(run.events.progress, 1);
    EXPECT_EQ(run.result, Outcome::Ok);
}

TEST(ScanLoop, StreamSkipRuleIsCaseSensitive) {
    // A 5-sector stream at sector 10 skips up to sector 13: hits at 11 and 12 are lost, 13 is found.
    for (const char* ext : {".mp3", ".Mp3"}) {
        ScanRun run;
        auto image = Image(30);
        for (uint64_t s : {10, 11, 12, 13}) Mark(image, s);
        AttachMemory(run.disk, std::make_unique<MemorySource>(image));
        run.rows = {UserRecord(kMagic, ext, 5 * kSector)};
        run.Run();
        size_t expected = std::string(ext) == ".mp3" ? 2 : 4;
        EXPECT_EQ(run.Files().size(), expected) << ext;
    }
}

TEST(ScanLoop, ShortStreamAtTheStartDoesNotSkipTheRest) {
    ScanRun run;
    auto image = Image(30);
    Mark(image, 0);
    Mark(image, 20);
    AttachMemory(run.disk, std::make_unique<MemorySource>(image));
    run.rows = {UserRecord(kMagic, ".mp3", 100)};
    run.Run();
    EXPECT_EQ(run.Files().size(), 2u);
}

TEST(ScanLoop, RangeFoldersAndNumbering) {
    ScanRun run;
    auto image = Image(kChunk + 491);
    for (uint64_t s = 0; s < 1001; ++s) Mark(image, s);
    AttachMemory(run.disk, std::make_unique<MemorySource>(image));
    run.rows = {UserRecord(kMagic, ".jpg", 10)};
    run.Run();
    CNode* type = FindChild(run.FileTypes(), u"jpg");
    ASSERT_TRUE(type);
    EXPECT_EQ(type->size, 1001u);
    EXPECT_EQ(type->flags, 3);
    CNode* first = FindChild(type, u"jpg[1-1000]");
    CNode* second = FindChild(type, u"jpg[1001-2000]");
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->size, 1000u);
    EXPECT_EQ(first->firstChild->name, u"file#1000.jpg"); // newest first
    EXPECT_EQ(first->firstChild->location, 999u);
    EXPECT_EQ(second->firstChild->name, u"file#1001.jpg");
    EXPECT_EQ(type->firstChild, second);
    // Two chunks: the second one is 491 sectors long and read with its true length.
    EXPECT_EQ(run.events.progress, 2);
}

TEST(ScanLoop, ExtensionsFillCaseSensitiveFolders) {
    ScanRun run;
    auto image = Image(20);
    Mark(image, 2);
    Mark(image, 4, {'B', 'I', 'G', '!'});
    AttachMemory(run.disk, std::make_unique<MemorySource>(image));
    run.rows = {UserRecord(kMagic, ".jpg", 10), UserRecord({'B', 'I', 'G', '!'}, ".JPG", 10)};
    run.Run();
    EXPECT_TRUE(FindChild(run.FileTypes(), u"jpg"));
    EXPECT_TRUE(FindChild(FindChild(run.FileTypes(), u"JPG"), u"JPG[1-1000]"));
}

// A scanner that reports a chosen file and embedded size, to drive the hit handling directly.
class FakeScanner final : public CScanner {
public:
    uint64_t embedded = 0;
    bool IsHeader(std::span<const uint8_t>) override { return true; }
    int Verify(uint64_t, std::span<const uint8_t>) override { return 1; }
    uint64_t FindFileSize(uint64_t, std::span<const uint8_t>) override { return 0; }
    uint64_t GetEmbeddedSize() override { return embedded; }
    uint64_t GetEmbeddedSector() override { return 77; }
    uint32_t GetEmbeddedOffset() override { return 12; }
    std::u16string_view GetEmbeddedExtension() override { return u".jpg"; }
};

TEST(ScanLoop, EmbeddedItemsShareTheNumberAndAreCappedAt4MiB) {
    std::unique_ptr<CNode> top(MakeTopNode());
    CNode* fileTypes = AddFolder(top.get(), u"File Types");
    FakeScanner s;
    SignatureRecord r;
    r.extension = ".cr2";
    s.SetSignature(r);
    s.embedded = 1000;
    AddCarvedHit(fileTypes, s, 5, 50000, 1000);
    AddCarvedHit(fileTypes, s, 9, 0, 2000);          // only the embedded item, same next number
    AddCarvedHit(fileTypes, s, 11, 60000, kMaxEmbeddedSize); // the preview is dropped
    CNode* range = FindChild(FindChild(fileTypes, u"cr2"), u"cr2[1-1000]");
    ASSERT_TRUE(range);
    std::vector<std::u16string> names;
    for (CNode* n = range->firstChild; n; n = n->nextSibling) names.push_back(n->name);
    EXPECT_EQ(names, (std::vector<std::u16string>{u"file#2.cr2", u"file_RAW#2.jpg", u"file_RAW#1.jpg", u"file#1.cr2"}));
    CNode* raw = range->firstChild->nextSibling;
    EXPECT_EQ(raw->location, 77u);
    EXPECT_EQ(raw->startOffset, 12u);
    EXPECT_EQ(raw->size, 2012u);
    EXPECT_EQ(raw->checked, 1);
    EXPECT_EQ(raw->carved, 1);
    EXPECT_EQ(range->size, 2u);
}

TEST(ScanLoop, ReadErrorsSkipTheChunkOrEndTheScan) {
    struct Case {
        uint32_t code;
        Outcome result;
        size_t files;
        bool ended;
    } cases[] = {{23, Outcome::ReadFailed, 2, false},
                 {platform::kErrAccessDenied, Outcome::ReadFailed, 1, true},
                 {platform::kErrDeviceGone, Outcome::DeviceGone, 1, true}};
    for (const Case& c : cases) {
        ScanRun run;
        auto image = Image(2 * kChunk + 576);
        Mark(image, 100);              // chunk 0
        Mark(image, kChunk + 88);      // chunk 1: unreadable
        Mark(image, 2 * kChunk + 76);  // chunk 2
        AttachMemory(run.disk, std::make_unique<FailingSource>(image, (kChunk + 188) * kSector,
                                                               (kChunk + 189) * kSector, c.code));
        run.rows = {UserRecord(kMagic, ".bin", 10)};
        EXPECT_EQ(run.Run(), c.result) << c.code;
        EXPECT_EQ(run.Files().size(), c.files) << c.code;
        EXPECT_EQ(run.events.status.size(), c.ended ? 1u : 0u) << c.code;
    }
}

TEST(ScanLoop, StopKeepsWhatWasFound) {
    ScanRun run;
    auto image = Image(2 * kChunk);
    Mark(image, 10);
    Mark(image, kChunk + 988);
    AttachMemory(run.disk, std::make_unique<MemorySource>(image));
    run.rows = {UserRecord(kMagic, ".bin", 10)};
    run.events.onProgress = [&] {
        if (run.events.progress == 2) run.op.state = OperationState::Cancel;
    };
    EXPECT_EQ(run.Run(), Outcome::Stopped);
    EXPECT_EQ(run.Files().size(), 1u);
}

TEST(ScanLoop, SourceGoneInAScannersReadEndsTheLoop) {
    // A zip whose second local header lies past the scanned range, where the source has gone
    // away: the walk's own read finds it gone, and the loop ends before its next chunk.
    ScanRun run;
    auto image = Image(kChunk + 576);
    Mark(image, 50);
    Mark(image, kChunk + 38); // in the second chunk: never reached
    Put(image, 100 * kSector, {'P', 'K', 3, 4});
    PutLe32(&image[100 * kSector + 18], uint32_t((kChunk + 188 - 100) * kSector - 30));
    AttachMemory(run.disk, std::make_unique<FailingSource>(image, (kChunk + 188) * kSector, (kChunk + 189) * kSector,
                                                           platform::kErrDeviceGone));
    SignatureRecord zip;
    zip.typeId = 55;
    zip.extension = ".zip";
    zip.header = {'P', 'K', 3, 4};
    run.rows = {UserRecord(kMagic, ".bin", 10), zip};
    run.op.state = OperationState::Running;
    ScanContext ctx = run.Context();
    EXPECT_EQ(ScanSignatures(run.disk, kScanSignaturesOnly, 0, kChunk + 88, ctx), Outcome::DeviceGone);
    EXPECT_EQ(run.Files(), std::vector<std::string>{"bin[1-1000]/file#1.bin@50:10"});
    EXPECT_EQ(run.events.status.size(), 1u);
}

TEST(ScanLoop, KindsWithoutSignaturesTestNothing) {
    for (uint32_t kind : {kScanRecordsOnly, kScanSignaturesOnly, kScanRecordsAndSignatures}) {
        ScanRun run;
        auto image = Image(10);
        Mark(image, 4);
        Mark(image, 6);
        AttachMemory(run.disk, std::make_unique<MemorySource>(image));
        run.rows = {UserRecord(kMagic, ".bin", 10)};
        EXPECT_EQ(run.Run(kind), Outcome::Ok);
        EXPECT_EQ(run.Files().size(), kind == kScanRecordsOnly ? 0u : 2u) << kind;
        EXPECT_EQ(run.FileTypes() != nullptr, kind != kScanRecordsOnly);
    }
}

// A partition deep in a disk: progress counts from the partition's first sector, so it starts at
// 0 % rather than at the share of the disk before it; carved files are counted as they are found.
TEST(ScanLoop, ProgressCountsFromTheRangeStartAndCountsCarvedFiles) {
    struct FirstProgress : IScanEvents {
        ScanOperation* op = nullptr;
        std::vector<std::pair<int64_t, int64_t>> seen;
        void OnEnd() override {}
        void OnProgress() override { seen.emplace_back(op->done.load(), op->total.load()); }
        void OnSignatureScanStart() override {}
    } events;
    ScanRun run;
    auto image = Image(3000);
    Mark(image, 2100);
    Mark(image, 2900);
    Mark(image, 100); // before the range: never seen
    AttachMemory(run.disk, std::make_unique<MemorySource>(image));
    run.rows = {UserRecord(kMagic, ".one", 1000)};
    events.op = &run.op;
    run.op.state = OperationState::Running;
    ScanContext ctx{run.op, events, run.gate, RecoveryMode::LostFiles, run.top.get(), &run.rows};
    ASSERT_EQ(ScanSignatures(run.disk, kScanSignaturesOnly, 2000, 3000, ctx), Outcome::Ok);
    ASSERT_FALSE(events.seen.empty());
    EXPECT_EQ(events.seen.front(), std::make_pair(int64_t(0), int64_t(1000)));
    for (const auto& [done, total] : events.seen) EXPECT_TRUE(done >= 0 && done < total);
    EXPECT_EQ(run.op.unitBytes.load(), kSector);
    EXPECT_EQ(run.Files().size(), 2u);
    EXPECT_EQ(run.op.found.carved.load(), 2u);
    EXPECT_EQ(run.op.found.files.load(), 0u);
}

TEST(CarvedContent, OneRunFromTheStartOffsetToSizeBytesFromTheSector) {
    std::vector<uint8_t> image(6000);
    for (size_t i = 0; i < image.size(); ++i) image[i] = uint8_t(i * 7);
    CPhysicalDisk disk;
    AttachMemory(disk, std::make_unique<MemorySource>(image));
    auto collect = [&](uint64_t sector, uint64_t size, uint32_t offset, ContentResult& res) {
        std::unique_ptr<CNode> top(MakeTopNode());
        CNode* n = AddCarvedFile(top.get(), u"x", sector, size, offset);
        std::vector<uint8_t> got;
        res = CarvedWriteContent(disk, *n, [&](const uint8_t* p, size_t len) {
            got.insert(got.end(), p, p + len);
            return true;
        });
        return got;
    };
    ContentResult res;
    auto whole = collect(2, 1500, 0, res);
    EXPECT_TRUE(res.ok);
    EXPECT_EQ(whole, std::vector<uint8_t>(image.begin() + 1024, image.begin() + 2524));
    auto embedded = collect(3, 812, 12, res); // an embedded item: 800 bytes at offset 12
    EXPECT_TRUE(res.ok);
    EXPECT_EQ(embedded, std::vector<uint8_t>(image.begin() + 1548, image.begin() + 2348));
    auto past = collect(10, 2000, 0, res); // runs 880 bytes past the end of the source
    EXPECT_FALSE(res.ok);
    EXPECT_EQ(past.size(), 880u);
    EXPECT_EQ(res.beyondVolume, 1120u);
}

} // namespace
} // namespace kestrin::test
