// The scan and the content read-back over small volumes built in memory.
#include <gtest/gtest.h>

#include "NtfsBuilder.h"
#include "NtfsTestSupport.h"
#include "storage/ByteSource.h"

using namespace kestrin;
using namespace kestrin::test;

namespace {

constexpr uint32_t kC = VolumeBuilder::kCluster;

std::vector<uint8_t> Pattern(size_t n, uint8_t seed) {
    std::vector<uint8_t> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = uint8_t(seed + i * 7 + (i >> 9));
    return v;
}

void Attach(CPhysicalDisk& media, std::vector<uint8_t> image) {
    uint64_t sectors = image.size() / 512;
    media.Attach(std::make_unique<MemorySource>(std::move(image)));
    media.SetSectorSize(512);
    media.SetSectorCount(sectors);
    media.SetFirstSector(0);
}

// Every item of the found tree as "path size flags", sorted.
std::vector<std::string> SortedPaths(CNode* vol) {
    std::vector<std::string> paths;
    for (auto& l : ListTree(vol)) paths.push_back(l.path + " " + std::to_string(l.size) + " " + std::to_string(l.flags));
    std::sort(paths.begin(), paths.end());
    return paths;
}

std::vector<uint8_t> Content(CPhysicalDisk& media, CNode* n, ContentResult* result = nullptr) {
    std::vector<uint8_t> out;
    ContentResult r = NtfsWriteContent(media, *n, [&](const uint8_t* p, size_t len) {
        out.insert(out.end(), p, p + len);
        return true;
    });
    if (result) *result = r;
    return out;
}

// A volume with one file of each kind; folder record 40 comes after its children.
struct FeatureVolume {
    VolumeBuilder v;
    std::vector<uint8_t> frag = Pattern(3 * kC - 100, 1), sparseHead = Pattern(kC, 2), sparseTail = Pattern(kC, 3);
    std::vector<uint8_t> listed = Pattern(4 * kC, 4), beyond = Pattern(2 * kC, 5);

    FeatureVolume() {
        v.SetRecord(20, RecordBuilder(20).StdInfo().FileName(40, u"small.txt").Resident(0x80, {'h', 'i', '!'}).Finish());
        v.PutCluster(100, {frag.begin(), frag.begin() + 2 * kC});
        v.PutCluster(90, {frag.begin() + 2 * kC, frag.end()});
        v.SetRecord(21, RecordBuilder(21).StdInfo().FileName(40, u"frag.bin")
                            .NonResident(0x80, EncodeRuns({{2, 100}, {1, -10}}), frag.size(), 0, 2)
                            .Finish());
        v.PutCluster(110, sparseHead);
        v.PutCluster(111, sparseTail);
        v.SetRecord(22, RecordBuilder(22).StdInfo().FileName(5, u"sparse.bin")
                            .NonResident(0x80, EncodeRuns({{1, 110}, {2, 0, true}, {1, 1}}), 4 * kC, 0, 3, 0x8000)
                            .Finish());
        v.SetRecord(41, RecordBuilder(41, 2).StdInfo().FileName(5, u"Old").IndexRoot({}).Finish());
        v.SetRecord(23, RecordBuilder(23, 0).StdInfo().FileName(41, u"gone.txt").Resident(0x80, {'x'}).Finish());
        v.SetRecord(24, RecordBuilder(24).StdInfo().FileName(60, u"orphan.txt").Resident(0x80, {'o'}).Finish());
        v.PutCluster(253, beyond);
        v.SetRecord(25, RecordBuilder(25).StdInfo().FileName(5, u"beyond.bin")
                            .NonResident(0x80, EncodeRuns({{4, 253}}), 4 * kC, 0, 3)
                            .Finish());
        // Compressed: one stored cluster of LZNT1 data and 15 sparse clusters make one unit.
        v.PutCluster(120, {0x05, 0xB0, 0x08, 'a', 'b', 'c', 0x06, 0x20, 0x00, 0x00});
        v.SetRecord(26, RecordBuilder(26).StdInfo().FileName(5, u"packed.txt")
                            .NonResident(0x80, EncodeRuns({{1, 120}, {15, 0, true}}), 13, 0, 15, 0x0001, 4)
                            .Finish());
        v.SetRecord(27, RecordBuilder(27).StdInfo().FileName(5, u"DOSONLY.TXT", 2).Resident(0x80, {'d'}).Finish());
        v.SetRecord(28, RecordBuilder(28).StdInfo().FileName(5, u"empty.txt").Resident(0x80, {}).Finish());
        // Data held in two extension records named by an attribute list.
        std::vector<uint8_t> list;
        RecordBuilder::ListEntry(list, 0x10, 0, 29);
        RecordBuilder::ListEntry(list, 0x30, 0, 30);
        RecordBuilder::ListEntry(list, 0x80, 0, 30);
        RecordBuilder::ListEntry(list, 0x80, 2, 31);
        v.SetRecord(29, RecordBuilder(29).StdInfo().Resident(0x20, list).Finish());
        v.SetRecord(30, RecordBuilder(30).Base(29 | 1ull << 48).FileName(5, u"listed.bin")
                            .NonResident(0x80, EncodeRuns({{2, 130}}), listed.size(), 0, 1)
                            .Finish());
        v.SetRecord(31, RecordBuilder(31).Base(29 | 1ull << 48).NonResident(0x80, EncodeRuns({{2, 140}}), 0, 2, 3).Finish());
        v.PutCluster(130, {listed.begin(), listed.begin() + 2 * kC});
        v.PutCluster(140, {listed.begin() + 2 * kC, listed.end()});
        v.SetRecord(40, RecordBuilder(40, 3).StdInfo().FileName(5, u"Docs").IndexRoot({}).Finish());
    }
};

} // namespace

TEST(NtfsScan, TreeAndContentOfEveryKind) {
    FeatureVolume f;
    CPhysicalDisk media;
    Attach(media, f.v.Image());
    ScanHarness h;
    NtfsScanVolume(media, 1, h.ctx);
    CNode* vol = h.Volume();
    ASSERT_NE(vol, nullptr);
    const std::vector<std::string> paths = SortedPaths(vol);
    std::vector<std::string> expected = {
        "/Docs 0 3",        "/Docs/frag.bin 12188 1", "/Docs/small.txt 3 1",
        "/Lost 0 2",          "/Lost/#27 1 1",    "/Lost/#60 0 2",    "/Lost/#60/orphan.txt 1 1", "/Old 0 2",
        "/Old/gone.txt 1 0",  "/beyond.bin 16384 1", "/empty.txt 0 1", "/listed.bin 16384 1", "/packed.txt 13 1",
        "/sparse.bin 16384 1",
    };
    EXPECT_EQ(paths, expected);
    // Only a DOS name: no name and no parent taken from it, so "#<record>" under "Lost".
    EXPECT_GT(h.events.progressCalls, 0);
    EXPECT_EQ(FindPath(vol, "/Docs/small.txt")->location, f.v.RecordSector(20));

    ContentResult r;
    EXPECT_EQ(Content(media, FindPath(vol, "/Docs/small.txt"), &r), (std::vector<uint8_t>{'h', 'i', '!'}));
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(Content(media, FindPath(vol, "/Docs/frag.bin"), &r), f.frag);
    EXPECT_TRUE(r.ok);
    auto sparse = Content(media, FindPath(vol, "/sparse.bin"), &r);
    std::vector<uint8_t> want = f.sparseHead;
    want.resize(3 * kC, 0);
    want.insert(want.end(), f.sparseTail.begin(), f.sparseTail.end());
    EXPECT_EQ(sparse, want);
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(Content(media, FindPath(vol, "/listed.bin"), &r), f.listed);
    EXPECT_TRUE(r.ok);
    auto packed = Content(media, FindPath(vol, "/packed.txt"), &r);
    EXPECT_EQ(std::string(packed.begin(), packed.end()), std::string("abcabcabcabc") + '\0');
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(Content(media, FindPath(vol, "/Old/gone.txt")), std::vector<uint8_t>{'x'});
    // Clusters 255 and 256 lie past the volume (255 clusters): the copy stops there.
    auto cut = Content(media, FindPath(vol, "/beyond.bin"), &r);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.beyondVolume, 2u * kC);
    EXPECT_EQ(cut, std::vector<uint8_t>(f.beyond.begin(), f.beyond.begin() + 2 * kC));
}

TEST(NtfsScan, MirrorStopAndUnusableVolumes) {
    FeatureVolume f;
    std::vector<uint8_t> rec0(f.v.RecordBytes(0), f.v.RecordBytes(0) + 1024);
    f.v.SetMirror(rec0);
    f.v.RecordBytes(0)[0] = 'X'; // record 0 unreadable: the mirror serves
    {
        CPhysicalDisk media;
        Attach(media, f.v.Image());
        ScanHarness h;
        NtfsScanVolume(media, 1, h.ctx);
        ASSERT_NE(h.Volume(), nullptr);
        EXPECT_NE(FindPath(h.Volume(), "/Docs/frag.bin"), nullptr);
    }
    {
        // A stop request before the walk: the volume root is attached with nothing read.
        CPhysicalDisk media;
        Attach(media, f.v.Image());
        ScanHarness h;
        h.op.state = OperationState::Cancel;
        NtfsScanVolume(media, 1, h.ctx);
        ASSERT_NE(h.Volume(), nullptr);
        EXPECT_EQ(ListTree(h.Volume()).size(), 1u);
    }
    {
        // Both the MFT and its mirror unusable: no tree at all. The search still finds records.
        std::vector<uint8_t> image = f.v.Image();
        image[2 * kC] = 'X';
        CPhysicalDisk media;
        Attach(media, image);
        ScanHarness h;
        NtfsScanVolume(media, 1, h.ctx);
        EXPECT_EQ(h.Volume(), nullptr);
        ScanHarness s;
        NtfsSearchRecords(media, 0, media.GetSectorCount(), s.ctx);
        ASSERT_NE(s.Volume(), nullptr);
        EXPECT_NE(FindPath(s.Volume(), "/Docs/frag.bin"), nullptr);
        EXPECT_NE(FindPath(s.Volume(), "/Old/gone.txt"), nullptr);
        // listed.bin's data lives in extension records: the search keeps those it meets and
        // the read-back finds them next to the base record.
        CNode* listed = FindPath(s.Volume(), "/listed.bin");
        ASSERT_NE(listed, nullptr);
        ContentResult r;
        EXPECT_EQ(Content(media, listed, &r), f.listed);
        EXPECT_TRUE(r.ok);
    }
}

TEST(NtfsScan, MftContinuedInExtensionRecord) {
    // The MFT's second half (records 32-63) is described only by extension record 20.
    VolumeBuilder v;
    std::vector<uint8_t> list;
    RecordBuilder::ListEntry(list, 0x10, 0, 0);
    RecordBuilder::ListEntry(list, 0x80, 0, 0);
    RecordBuilder::ListEntry(list, 0x80, 8, 20);
    v.SetRecord(0, RecordBuilder(0).StdInfo().Resident(0x20, list).FileName(5, u"$MFT")
                       .NonResident(0x80, EncodeRuns({{8, 4}}), 64 * 1024, 0, 7)
                       .Finish());
    v.SetRecord(20, RecordBuilder(20).Base(1ull << 48).NonResident(0x80, EncodeRuns({{8, 60}}), 0, 8, 15).Finish());
    // Record 40 lives in the second half, at cluster 60 + (40 - 32) / 4 = 62.
    auto rec40 = RecordBuilder(40).StdInfo().FileName(5, u"far.txt").Resident(0x80, {'f'}).Finish();
    std::vector<uint8_t> cluster(kC, 0);
    std::copy(rec40.begin(), rec40.end(), cluster.begin());
    v.PutCluster(62, cluster);
    CPhysicalDisk media;
    Attach(media, v.Image());
    ScanHarness h;
    NtfsScanVolume(media, 1, h.ctx);
    ASSERT_NE(h.Volume(), nullptr);
    CNode* far = FindPath(h.Volume(), "/far.txt");
    ASSERT_NE(far, nullptr);
    EXPECT_EQ(far->location, 62u * 8);
    EXPECT_EQ(Content(media, far), std::vector<uint8_t>{'f'});
}

// A record lists under every Win32 or POSIX name it has, each in its own folder, and its named
// data streams as "name:stream" beside each of them; the read-back gives each stream's bytes.
TEST(NtfsScan, EveryNameAndStreamOfARecord) {
    VolumeBuilder v;
    const std::vector<uint8_t> note = {'f', 'o', 'l', 'd', 'e', 'r'}, far = Pattern(5000, 9);
    v.SetRecord(40, RecordBuilder(40, 3).StdInfo().FileName(5, u"Docs").Resident(0x80, note, u"note").IndexRoot({}).Finish());
    // Deleted, with two names: both are deleted items, and so is its stream.
    v.SetRecord(41, RecordBuilder(41, 0).StdInfo().FileName(40, u"a.txt").FileName(5, u"b.txt", 0)
                        .Resident(0x80, {'g', 'o', 'n', 'e'}).Resident(0x80, {'s', 's'}, u"s").Finish());
    // A long name and its DOS twin, and a name in both namespaces: one item each.
    v.SetRecord(42, RecordBuilder(42).StdInfo().FileName(5, u"Long name.txt").FileName(5, u"LONGNA~1.TXT", 2)
                        .Resident(0x80, {'L'}).Finish());
    v.SetRecord(43, RecordBuilder(43).StdInfo().FileName(5, u"BOTH.TXT", 3).Resident(0x80, {'B'}).Finish());
    // A second name and a stream held in an extension record, named by the attribute list.
    std::vector<uint8_t> list;
    RecordBuilder::ListEntry(list, 0x10, 0, 44);
    RecordBuilder::ListEntry(list, 0x30, 0, 44, 2);
    RecordBuilder::ListEntry(list, 0x30, 0, 45, 0);
    RecordBuilder::ListEntry(list, 0x80, 0, 44, 3);
    RecordBuilder::ListEntry(list, 0x80, 0, 45, 1, u"far");
    v.SetRecord(44, RecordBuilder(44).StdInfo().Resident(0x20, list).FileName(5, u"listed.txt")
                        .Resident(0x80, {'D'}).Finish());
    v.SetRecord(45, RecordBuilder(45).Base(44 | 1ull << 48).FileName(40, u"link.txt", 0)
                        .NonResident(0x80, EncodeRuns({{2, 150}}), far.size(), 0, 1, 0, 0, u"far").Finish());
    v.PutCluster(150, far);
    // The system's streams: any on a record below 24, "$" streams of "$" files.
    v.SetRecord(12, RecordBuilder(12).StdInfo().FileName(5, u"sys.bin").Resident(0x80, {'y'})
                        .Resident(0x80, {'1'}, u"s").Finish());
    v.SetRecord(46, RecordBuilder(46).StdInfo().FileName(5, u"$Thing").Resident(0x80, {'t'}).Resident(0x80, {'2'}, u"$J")
                        .Resident(0x80, {'3'}, u"user").Finish());

    CPhysicalDisk media;
    Attach(media, v.Image());
    ScanHarness h;
    NtfsScanVolume(media, 1, h.ctx);
    CNode* vol = h.Volume();
    ASSERT_NE(vol, nullptr);
    const std::vector<std::string> paths = SortedPaths(vol);
    const std::vector<std::string> expected = {
        "/$Thing 1 1",        "/$Thing:user 1 9",        "/BOTH.TXT 1 1",      "/Docs 0 3",
        "/Docs/a.txt 4 0",    "/Docs/a.txt:s 2 8",       "/Docs/link.txt 1 1", "/Docs/link.txt:far 5000 9",
        "/Docs:note 6 9",     "/Long name.txt 1 1",      "/Lost 0 2",          "/b.txt 4 0",
        "/b.txt:s 2 8",       "/listed.txt 1 1",         "/listed.txt:far 5000 9", "/sys.bin 1 1",
    };
    EXPECT_EQ(paths, expected);
    EXPECT_EQ(FindPath(vol, "/b.txt")->location, FindPath(vol, "/Docs/a.txt")->location);
    EXPECT_EQ(FindPath(vol, "/b.txt:s")->recordId, 41u);

    ContentResult r;
    EXPECT_EQ(Content(media, FindPath(vol, "/Docs:note"), &r), note);
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(Content(media, FindPath(vol, "/b.txt:s"), &r), (std::vector<uint8_t>{'s', 's'}));
    EXPECT_EQ(Content(media, FindPath(vol, "/b.txt"), &r), (std::vector<uint8_t>{'g', 'o', 'n', 'e'}));
    EXPECT_EQ(Content(media, FindPath(vol, "/Docs/link.txt:far"), &r), far);
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(Content(media, FindPath(vol, "/Docs/link.txt"), &r), std::vector<uint8_t>{'D'});

    // Without the MFT the record search lists the same, extension records found beside the base.
    std::vector<uint8_t> image = v.Image();
    image[VolumeBuilder::kMftCluster * kC] = 'X';
    image[2 * kC] = 'X';
    CPhysicalDisk broken;
    Attach(broken, image);
    ScanHarness s;
    NtfsSearchRecords(broken, 0, broken.GetSectorCount(), s.ctx);
    ASSERT_NE(s.Volume(), nullptr);
    CNode* found = FindPath(s.Volume(), "/Docs/link.txt:far");
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(Content(broken, found, &r), far);
    EXPECT_TRUE(r.ok);
    EXPECT_NE(FindPath(s.Volume(), "/Docs/a.txt:s"), nullptr);
}
