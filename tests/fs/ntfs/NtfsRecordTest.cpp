// Byte-level tests of the NTFS structures: boot test, record check and fix-up, run decoding,
// record parsing rules, index entries and LZNT1.
#include <gtest/gtest.h>

#include <memory>

#include "NtfsBuilder.h"
#include "fs/DirectoryIndex.h"
#include "fs/ntfs/Lznt1.h"
#include "fs/ntfs/NtfsRecord.h"
#include "util/Text.h"

using namespace kestrin;
using namespace kestrin::test;

namespace {

std::vector<uint8_t> GoodBoot() {
    VolumeBuilder v(16);
    return std::vector<uint8_t>(v.Image().begin(), v.Image().begin() + 512);
}

std::unique_ptr<ScanEntry> Parse(std::vector<uint8_t> rec, bool& yielded, uint32_t runningIndex = 77) {
    EXPECT_TRUE(CheckFileRecord(rec, uint32_t(rec.size())));
    auto e = std::make_unique<ScanEntry>();
    yielded = ParseFileRecord(rec, *e, runningIndex, nullptr);
    return e;
}

} // namespace

TEST(NtfsBoot, FieldsAndThirtyTwoBitRecordCounts) {
    EXPECT_TRUE(NtfsBootTest(GoodBoot()));
    struct Case {
        size_t at;
        std::vector<uint8_t> bytes;
        bool pass;
    } cases[] = {
        {0x00, {0}, false},          {0x02, {0x91}, false},         {0x0B, {0x01, 0x02}, false},
        {0x0D, {3}, false},          {0x0D, {1}, true},             {0x20, {0, 0, 0, 1}, false},
        {0x24, {0x00}, false},       {0x28, {0, 0, 0, 0, 0, 0, 0, 0}, false},
        {0x30, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, false},
        // The record fields are four-byte values: a set upper byte keeps an even value even, an
        // odd low byte fails, and all-zero fails.
        {0x40, {0xF6, 0, 0, 1}, true}, {0x40, {0xF5, 0, 0, 0}, false}, {0x40, {0, 0, 0, 0}, false},
        {0x44, {0x01, 0, 0, 0}, true}, {0x44, {0x01, 0, 0, 1}, false},
    };
    for (const Case& c : cases) {
        auto b = GoodBoot();
        std::copy(c.bytes.begin(), c.bytes.end(), b.begin() + c.at);
        EXPECT_EQ(NtfsBootTest(b), c.pass) << "offset " << c.at;
    }
}

TEST(NtfsRecordCheck, FixupAndHeaderRules) {
    auto good = RecordBuilder(70).StdInfo().FileName(5, u"a.txt").Resident(0x80, std::vector<uint8_t>(600, 9)).Finish();
    ASSERT_GT(Le32(good.data() + 0x18), 512u);
    auto rec = good;
    // Bytes at the end of the first sector are protected; the check restores them.
    uint8_t before[2] = {rec[510], rec[511]};
    ASSERT_TRUE(CheckFileRecord(rec, 1024));
    EXPECT_NE(before[0], rec[510]);

    // Update-sequence count 2 cannot cover 1024 bytes of 512-byte blocks.
    rec = good;
    Put16(rec, 6, 2);
    EXPECT_FALSE(CheckFileRecord(rec, 1024));
    // A torn write: the sequence number at the end of a block differs.
    rec = good;
    Put32(rec, 0x18, 1024);
    rec[1022] ^= 0xFF;
    EXPECT_FALSE(CheckFileRecord(rec, 1024));
    // ...but a block wholly beyond bytes in use is not looked at.
    rec = good;
    rec[1022] ^= 0xFF;
    EXPECT_TRUE(CheckFileRecord(rec, 1024));
    // Bytes in use beyond bytes allocated, and allocated different from the record size.
    rec = good;
    Put32(rec, 0x18, 2048);
    EXPECT_FALSE(CheckFileRecord(rec, 1024));
    rec = good;
    EXPECT_FALSE(CheckFileRecord(rec, 2048));
    // First attribute not where the update-sequence array ends.
    rec = good;
    Put16(rec, 0x14, 0x40);
    EXPECT_FALSE(CheckFileRecord(rec, 1024));
    // An attribute longer than what is in use, or of length 0.
    rec = good;
    Put32(rec, 0x38 + 4, 0x400);
    EXPECT_FALSE(CheckFileRecord(rec, 1024));
    rec = good;
    Put32(rec, 0x38 + 4, 0);
    EXPECT_FALSE(CheckFileRecord(rec, 1024));
    // No attribute at all.
    EXPECT_FALSE(CheckFileRecord(rec = RecordBuilder(71).Finish(), 1024));
    // A non-resident standard information attribute.
    EXPECT_FALSE(CheckFileRecord(rec = RecordBuilder(72).NonResident(0x10, EncodeRuns({{1, 30}}), 10).Finish(), 1024));
    // The older header layout (array at 42, first attribute at 48) is accepted.
    rec = RecordBuilder(73, 1, 1024, 42).StdInfo().FileName(5, u"old").Finish();
    EXPECT_EQ(Le16(rec.data() + 0x14), 48);
    EXPECT_TRUE(CheckFileRecord(rec, 1024));
    // Index records: bytes in use above allocated fails.
    auto indx = IndexRecord({IndexEntry(80, 5, u"dir", true)});
    auto bad = indx;
    Put32(bad, 0x1C, 5000);
    EXPECT_TRUE(CheckIndexRecord(indx));
    EXPECT_FALSE(CheckIndexRecord(bad));
}

TEST(NtfsRuns, DecodingAndEndRules) {
    std::vector<NtfsRun> runs;
    auto list = EncodeRuns({{8, 100}, {4, -60}, {16, 0, true}, {2, 1000}});
    EXPECT_TRUE(DecodeRuns(list, 0, runs));
    ASSERT_EQ(runs.size(), 4u);
    EXPECT_EQ(runs[0].startCluster, 100u);
    EXPECT_EQ(runs[1].startCluster, 40u); // a negative offset moves backwards
    EXPECT_TRUE(runs[2].sparse);
    EXPECT_EQ(runs[2].lengthClusters, 16u);
    EXPECT_EQ(runs[3].startCluster, 1040u); // a hole does not move the position
    EXPECT_EQ(runs[3].lengthClusters, 2u);

    // A field wider than 8 bytes ends decoding at that run; earlier runs stay.
    runs.clear();
    std::vector<uint8_t> wide = {0x11, 4, 10, 0x19, 1, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0x11, 1, 1, 0};
    EXPECT_FALSE(DecodeRuns(wide, 0, runs));
    EXPECT_EQ(runs.size(), 1u);
    // A field that starts like the F0 FF FF F0 fill ends decoding.
    runs.clear();
    std::vector<uint8_t> fill = {0x11, 4, 10, 0x22, 0xF0, 0xFF, 1, 0, 0};
    DecodeRuns(fill, 0, runs);
    EXPECT_EQ(runs.size(), 1u);
    // A list cut short keeps what was read.
    runs.clear();
    std::vector<uint8_t> cut = {0x11, 4, 10, 0x31, 5};
    DecodeRuns(cut, 0, runs);
    EXPECT_EQ(runs.size(), 1u);
}

TEST(NtfsRuns, WideFieldsOnLargeVolumes) {
    // A volume of 2^36 clusters: five-byte lengths and offsets, both ways, and eight-byte fields
    // holding small values.
    const uint64_t volume = 1ull << 36;
    std::vector<NtfsRun> runs;
    auto list = EncodeRuns({{0x100000010ull, int64_t(3) << 32}, {8, -(int64_t(1) << 32)}, {0x20, 0, true}});
    std::vector<uint8_t> eight = {0x88, 5, 0, 0, 0, 0, 0, 0, 0, 0x40, 0, 0, 0, 0, 0, 0, 0, 0};
    list.pop_back();
    list.insert(list.end(), eight.begin(), eight.end());
    EXPECT_TRUE(DecodeRuns(list, 0, runs, volume));
    ASSERT_EQ(runs.size(), 4u);
    EXPECT_EQ(runs[0].lengthClusters, 0x100000010ull);
    EXPECT_EQ(runs[0].startCluster, 3ull << 32);
    EXPECT_EQ(runs[1].startCluster, 2ull << 32);
    EXPECT_TRUE(runs[2].sparse);
    EXPECT_EQ(runs[3].lengthClusters, 5u);
    EXPECT_EQ(runs[3].startCluster, (2ull << 32) + 0x40);
}

TEST(NtfsRuns, RunsOutsideTheVolumeOrPastTheLargestVcnAreRefused) {
    struct Case {
        const char* what;
        std::vector<RunSpec> specs;
        uint64_t volumeClusters;
    };
    const int64_t kTop = INT64_MAX;
    const Case cases[] = {
        {"start below cluster 0", {{8, 100}, {4, -101}}, 0},
        {"start at the volume's end", {{8, 100}, {8, 900}}, 1000},
        {"start far past the volume's end", {{8, 100}, {1, 5000}}, 1000},
        {"start cluster overflows", {{8, 100}, {1, kTop}}, 0},
        {"lengths overflow the VCN", {{8, 100}, {uint64_t(kTop) - 7, 0, true}}, 0},
        {"a length above the largest VCN", {{8, 100}, {~0ull, 5}}, 0},
    };
    for (const Case& c : cases) {
        std::vector<NtfsRun> runs;
        EXPECT_FALSE(DecodeRuns(EncodeRuns(c.specs), 0, runs, c.volumeClusters)) << c.what;
        ASSERT_EQ(runs.size(), 1u) << c.what;
        EXPECT_EQ(runs[0].startCluster, 100u) << c.what;
    }
    // Inside bounds the lists decode whole: a run from the last cluster (and one that only ends
    // past the volume, which the readers clip), and lengths up to the largest VCN exactly.
    std::vector<NtfsRun> runs;
    EXPECT_TRUE(DecodeRuns(EncodeRuns({{8, 100}, {100, 899}}), 0, runs, 1000));
    EXPECT_TRUE(DecodeRuns(EncodeRuns({{8, 100}, {uint64_t(kTop) - 8, 0, true}}), 0, runs));
    EXPECT_EQ(runs.size(), 4u);
}

TEST(NtfsAttrList, EntriesAndWhereTheListComesFrom) {
    // Entries: a file name, a named data piece, then one shorter than an entry can be.
    std::vector<uint8_t> list;
    RecordBuilder::ListEntry(list, 0x30, 0, 77);
    RecordBuilder::ListEntry(list, 0x80, 8, 78);
    list[32 + 6] = 4; // a name of four units
    RecordBuilder::ListEntry(list, 0x80, 0, 79);
    Put16(list, 64 + 4, 20);
    std::vector<NtfsListEntry> seen;
    ForEachListEntry(list, [&](const NtfsListEntry& e) {
        seen.push_back(e);
        return true;
    });
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].type, 0x30u);
    EXPECT_EQ(seen[0].record, 77u); // the sequence number above bit 48 is dropped
    EXPECT_TRUE(seen[0].unnamed);
    EXPECT_EQ(seen[1].firstVcn, 8u);
    EXPECT_FALSE(seen[1].unnamed);
    // An entry that runs past the list ends it too.
    seen.clear();
    ForEachListEntry(Bytes(list).first(32 + 30), [&](const NtfsListEntry& e) {
        seen.push_back(e);
        return true;
    });
    EXPECT_EQ(seen.size(), 1u);

    // A non-resident list is read through the source, within the limit; a failed read is told.
    struct Source final : INtfsRecordSource {
        bool ok = true;
        int reads = 0;
        bool ReadRecord(uint64_t, std::vector<uint8_t>&) override { return false; }
        bool ReadRunData(const std::vector<NtfsRun>&, uint64_t bytes, std::vector<uint8_t>& out) override {
            ++reads;
            out.assign(size_t(bytes), 7);
            return ok;
        }
    } source;
    auto listed = [](uint64_t size) {
        return RecordBuilder(40).StdInfo().NonResident(0x20, EncodeRuns({{1, 50}}), size).Finish();
    };
    struct Case {
        std::vector<uint8_t> rec;
        bool sourceOk, withSource;
        size_t bytes;
        bool readOk;
        int reads;
    } cases[] = {
        {RecordBuilder(40).StdInfo().Resident(0x20, list).Finish(), true, false, list.size(), true, 0},
        {listed(100), true, true, 100, true, 1},
        {listed(100), false, true, 100, false, 1}, // what was read stays for callers that want it
        {listed(100), true, false, 0, false, 0},
        {listed(kMaxAttrListBytes + 1), true, true, 0, false, 0},
    };
    for (Case& c : cases) {
        source.ok = c.sourceOk;
        source.reads = 0;
        ASSERT_TRUE(CheckFileRecord(c.rec, uint32_t(c.rec.size())));
        bool readOk = false;
        std::vector<uint8_t> storage;
        Bytes got;
        ForEachAttribute(c.rec, [&](const NtfsAttr& a) {
            if (a.type == kAttrList) got = AttributeListBytes(c.rec, a, c.withSource ? &source : nullptr, storage, readOk);
            return true;
        });
        EXPECT_EQ(got.size(), c.bytes);
        EXPECT_EQ(readOk, c.readOk);
        EXPECT_EQ(source.reads, c.reads);
    }
}

TEST(NtfsParse, NamesAndFilters) {
    bool yielded;
    // Win32 and DOS names: the Win32 one is kept whatever the order.
    auto e = Parse(RecordBuilder(70).StdInfo().FileName(5, u"LONGFI~1.TXT", 2).FileName(5, u"long file name.txt", 1)
                       .Resident(0x80, {1, 2, 3})
                       .Finish(),
                   yielded);
    EXPECT_TRUE(yielded);
    EXPECT_EQ(e->name, u"long file name.txt");
    EXPECT_EQ(e->size, 3u);
    EXPECT_EQ(e->recordId, 70u);
    EXPECT_EQ(e->parentRecordId, 5u);
    EXPECT_EQ(e->flags, 1);
    EXPECT_NE(e->createdDate, 0);
    // Only a DOS name: an item without a name (named "#<record>" when placed).
    e = Parse(RecordBuilder(71).StdInfo().FileName(5, u"SHORT.TXT", 2).Resident(0x80, {1}).Finish(), yielded);
    EXPECT_TRUE(yielded);
    EXPECT_TRUE(e->name.empty());
    // The metadata files and the root's own record yield nothing; a record that is its own parent
    // keeps its name and has no known parent (it goes to "Lost"); a file in the extend folder
    // yields an item.
    for (auto name : {u"$MFT", u"$MFTMirr", u"$LogFile", u"$Volume", u"$AttrDef", u"$Bitmap", u"$Boot", u"$BadClus",
                      u"$Secure", u"$UpCase"}) {
        Parse(RecordBuilder(9).StdInfo().FileName(5, name).Resident(0x80, {1}).Finish(), yielded);
        EXPECT_FALSE(yielded) << ToUtf8(name);
    }
    Parse(RecordBuilder(5, 3).StdInfo().FileName(5, u".").Finish(), yielded);
    EXPECT_FALSE(yielded);
    e = Parse(RecordBuilder(90, 3).StdInfo().FileName(90, u"loop").Finish(), yielded);
    EXPECT_TRUE(yielded);
    EXPECT_EQ(e->name, u"loop");
    EXPECT_EQ(e->parentRecordId, kUnknownParent);
    Parse(RecordBuilder(27).StdInfo().FileName(11, u"$Repair").Resident(0x80, {1}).Finish(), yielded);
    EXPECT_TRUE(yielded);
    // A folder with an unnamed data attribute yields nothing; an ordinary folder does.
    Parse(RecordBuilder(91, 3).StdInfo().FileName(5, u"odd").Resident(0x80, {1}).Finish(), yielded);
    EXPECT_FALSE(yielded);
    e = Parse(RecordBuilder(92, 3).StdInfo().FileName(5, u"dir").IndexRoot({}).Finish(), yielded);
    EXPECT_TRUE(yielded);
    EXPECT_EQ(e->flags, 3);
    // A named stream is not the file's data: the size comes from the unnamed one after it.
    e = Parse(RecordBuilder(93).StdInfo().FileName(5, u"ads.txt").Resident(0x80, {1, 2}, u"extra")
                  .NonResident(0x80, EncodeRuns({{2, 40}}), 5000, 0, 1)
                  .Finish(),
              yielded);
    EXPECT_TRUE(yielded);
    EXPECT_EQ(e->size, 5000u);
    // A name longer than its attribute is not taken.
    auto rec = RecordBuilder(94).StdInfo().FileName(5, u"abc").Resident(0x80, {1}).Finish();
    size_t fn = 0x38 + 0x48; // after the 72-byte standard information
    ASSERT_EQ(Le32(rec.data() + fn), 0x30u);
    rec[fn + 0x18 + 0x40] = 200;
    e = Parse(rec, yielded);
    EXPECT_TRUE(e->name.empty());
}

TEST(NtfsParse, RecordNumbersAndNamespaceQuirk) {
    bool yielded;
    // Without a record number in the header the running index is used; a folder's own number
    // comes from the first index entry of its index root.
    auto e = Parse(RecordBuilder(0, 1, 1024, 42).StdInfo().FileName(5, u"f").Resident(0x80, {1}).Finish(), yielded, 333);
    EXPECT_EQ(e->recordId, 333u);
    auto entry = IndexEntry(120, 66, u"child.txt", false);
    e = Parse(RecordBuilder(0, 3, 1024, 42).StdInfo().FileName(5, u"d").IndexRoot(entry).Finish(), yielded, 333);
    EXPECT_EQ(e->recordId, 66u);
    // The namespace byte is read at attribute offset 0x59 even when the value starts elsewhere.
    auto rec = RecordBuilder(95).StdInfo().Resident(0x30, std::vector<uint8_t>(0x50, 0), u"nm").Finish();
    // Value at 0x20 (after the name): name "Q" at value + 0x42, namespace at value + 0x41 = DOS,
    // while attribute offset 0x59 holds Win32.
    size_t fn = 0x38 + 0x48, v = fn + Le16(rec.data() + fn + 0x14);
    rec[v + 0x40] = 1;
    rec[v + 0x41] = 2;
    Put16(rec, v + 0x42, u'Q');
    rec[fn + 0x59] = 1;
    e = Parse(rec, yielded);
    EXPECT_EQ(e->name, u"Q");
}

TEST(NtfsIndex, EntriesDescribeFolders) {
    std::vector<NtfsIndexFolder> got;
    auto collect = [&](NtfsIndexFolder&& f) { got.push_back(std::move(f)); };
    auto rec = IndexRecord({IndexEntry(80, 64, u"Photos", true), IndexEntry(81, 64, u"a.jpg", false),
                            IndexEntry(82, 64, u"PHOTOS~1", true, 2), IndexEntry(83, 64, u"Music", true)});
    ASSERT_TRUE(CheckIndexRecord(rec));
    ParseIndexEntries(rec, collect);
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].name, u"Photos");
    EXPECT_EQ(got[0].recordId, 80u);
    EXPECT_EQ(got[0].parentRecordId, 64u);
    EXPECT_NE(got[0].modifiedDate, 0);
    EXPECT_EQ(got[1].name, u"Music");

    // An entry longer than 66 bytes but too short for the key's fields is passed over.
    got.clear();
    auto shortKey = IndexEntry(84, 64, u"X", true);
    shortKey.resize(72);
    Put16(shortKey, 8, 72);
    auto rec2 = IndexRecord({shortKey, IndexEntry(83, 64, u"Music", true)});
    ASSERT_TRUE(CheckIndexRecord(rec2));
    ParseIndexEntries(rec2, collect);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].name, u"Music");

    // Flags 3 (last entry of a branch node) and a zero length both end the node.
    for (int variant = 0; variant < 2; ++variant) {
        got.clear();
        auto cut = IndexRecord({IndexEntry(80, 64, u"Photos", true), IndexEntry(83, 64, u"Music", true)});
        ASSERT_TRUE(CheckIndexRecord(cut));
        size_t second = 0x40 + IndexEntry(80, 64, u"Photos", true).size();
        if (variant == 0) cut[second + 12] = 3;
        else Put16(cut, second + 8, 0);
        ParseIndexEntries(cut, collect);
        EXPECT_EQ(got.size(), 1u);
    }
}

TEST(NtfsLznt1, ChunksAndBackReferences) {
    // One compressed chunk: literals "abc", then a back-reference of 9 bytes at distance 3.
    std::vector<uint8_t> in = {0x05, 0xB0, 0x08, 'a', 'b', 'c', 0x06, 0x20, 0x00, 0x00};
    std::vector<uint8_t> out(8192, 0);
    bool error;
    size_t n = Lznt1Decompress(in.data(), in.size(), out.data(), out.size(), error);
    EXPECT_FALSE(error);
    EXPECT_EQ(n, 4096u); // a chunk stands for 4096 bytes
    EXPECT_EQ(std::string(out.begin(), out.begin() + 13), std::string("abcabcabcabc") + '\0');
    // A stored chunk is copied as is.
    std::vector<uint8_t> stored(2 + 4096, 'x');
    Put16(stored, 0, 0x3FFF);
    std::fill(out.begin(), out.end(), 0);
    n = Lznt1Decompress(stored.data(), stored.size(), out.data(), out.size(), error);
    EXPECT_EQ(n, 4096u);
    EXPECT_EQ(out[4095], 'x');
    // A back-reference before the start of the chunk is an error; output so far stays.
    std::vector<uint8_t> bad = {0x03, 0xB0, 0x02, 'a', 0x00, 0x50};
    std::fill(out.begin(), out.end(), 0);
    Lznt1Decompress(bad.data(), bad.size(), out.data(), out.size(), error);
    EXPECT_TRUE(error);
    EXPECT_EQ(out[0], 'a');
}
