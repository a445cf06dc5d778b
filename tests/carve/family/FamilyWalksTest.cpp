// Walks whose formats no encoder on the build machine writes (camera raws of the heap, block
// and end-directory kinds, page databases, ASF and DBF), built by hand from their layouts, and
// the AVI continuation chunks of large files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "carve/CarveTestUtil.h"
#include "carve/family/FamilyTestUtil.h"
#include "carve/scanners/family/CAsfMembers.h"
#include "carve/scanners/family/CDBFScanner.h"
#include "util/Bytes.h"

namespace kestrin::test {
namespace {

void Put(std::vector<uint8_t>& f, size_t at, const void* p, size_t n) {
    if (f.size() < at + n) f.resize(at + n);
    std::memcpy(&f[at], p, n);
}

// CIFF: a 26-byte header, heap data (a preview JPEG and other blocks), the root table, and the
// table's offset as the last four bytes.
std::vector<uint8_t> CrwFile() {
    std::vector<uint8_t> f(26, 0);
    Put(f, 0, "II\x1A\0\0\0HEAPCCDR", 14);
    std::vector<uint8_t> heap(3000, 0x55);
    heap[100] = 0xFF;
    heap[101] = 0xD8;
    std::vector<uint8_t> table(2 + 3 * 10 + 4);
    PutLe16(&table[0], 3);
    auto entry = [&](int i, uint16_t tag, uint32_t length, uint32_t offset) {
        PutLe16(&table[2 + i * 10], tag);
        PutLe32(&table[2 + i * 10 + 2], length);
        PutLe32(&table[2 + i * 10 + 6], offset);
    };
    entry(0, 0x2007, 1500, 100); // the preview JPEG
    entry(1, 0x2005, 1200, 1700);
    entry(2, 0x5029, 0, 0); // stored in the table itself
    PutLe32(&table[2 + 30], uint32_t(heap.size()));
    f.insert(f.end(), heap.begin(), heap.end());
    f.insert(f.end(), table.begin(), table.end());
    return f;
}

TEST(FamilyWalks, CanonHeapFileEndsAtItsTableAndGivesThePreview) {
    auto crw = CrwFile();
    for (auto [id, ext] : {std::pair{213u, ".crw"}, std::pair{217u, ".crw"}}) {
        SignatureRecord r = ShippedRecord(id, ext);
        CarveResult c = CarveOne(r, crw);
        EXPECT_EQ(c.size, crw.size());
        EXPECT_EQ(c.embeddedSize, 1500u);
        EXPECT_EQ(c.embeddedSector, kSampleSector + 126 / 512);
        EXPECT_EQ(c.embeddedOffset, 126u);
    }
    // An entry that points past the table: no table closes there, and none later either.
    auto bad = crw;
    PutLe32(&bad[26 + 3000 + 2 + 10 + 6], 2900);
    EXPECT_EQ(CarveOne(ShippedRecord(213, ".crw"), bad).size, 0u);
}

TEST(FamilyWalks, SigmaDirectoryAtTheEnd) {
    std::vector<uint8_t> f(4000, 0x66);
    Put(f, 0, "FOVb", 4);
    Put(f, 600, "SECi", 4);
    PutLe32(&f[612], 18); // JPEG image section
    f[628] = 0xFF;
    f[629] = 0xD8;
    size_t dir = f.size();
    Put(f, dir, "SECd\0\0\2\0", 8);
    std::vector<uint8_t> d(4 + 2 * 12 + 4);
    PutLe32(&d[0], 2);
    PutLe32(&d[4], 600);
    PutLe32(&d[8], 1000);
    std::memcpy(&d[12], "IMA2", 4);
    PutLe32(&d[16], 1600);
    PutLe32(&d[20], 2000);
    std::memcpy(&d[24], "CAMF", 4);
    PutLe32(&d[28], uint32_t(dir));
    f.insert(f.end(), d.begin(), d.end());
    CarveResult c = CarveOne(ShippedRecord(216, ".x3f"), f);
    EXPECT_EQ(c.size, f.size());
    EXPECT_EQ(c.embeddedSize, 1000u - 28);
    EXPECT_EQ(c.embeddedSector * 512 + c.embeddedOffset, kSampleSector * 512 + 628);
    PutLe32(&f[f.size() - 4], 12); // the pointer misses the directory
    EXPECT_EQ(CarveOne(ShippedRecord(216, ".x3f"), f).size, 0u);
}

TEST(FamilyWalks, MinoltaImageAfterTheHeaderBlocks) {
    std::vector<uint8_t> f(8 + 8 + 24 + 8 + 8, 0);
    Put(f, 0, "\0MRM", 4);
    PutBe32(&f[4], 8 + 24 + 8 + 8);
    Put(f, 8, "\0PRD", 4);
    PutBe32(&f[12], 24);
    PutBe16(&f[16 + 8], 20);  // rows
    PutBe16(&f[16 + 10], 30); // columns
    f[16 + 18] = 0x59;        // 12-bit packed
    Put(f, 40, "\0PAD", 4);
    PutBe32(&f[44], 8);
    f.resize(56 + 900, 0x77);
    EXPECT_EQ(CarveOne(ShippedRecord(207, ".mrw"), f).size, 56u + 20 * 30 * 12 / 8);
    f[16 + 18] = 0x52; // unpacked: two bytes a pixel, past what is there
    EXPECT_EQ(CarveOne(ShippedRecord(207, ".mrw"), f, true).size, 0u);
}

TEST(FamilyWalks, InDesignPagesAndContiguousStreams) {
    std::vector<uint8_t> f(3 * 4096, 0);
    SignatureRecord indd = ShippedRecord(275, ".indd");
    Put(f, 0, indd.header.data(), indd.header.size());
    Put(f, 16, "DOCUMENT", 8);
    f[24] = 1;
    PutLe32(&f[280], 3);
    const uint8_t marker[16] = {0xDE, 0x39, 0x39, 0x79, 0x51, 0x88, 0x4B, 0x6C,
                                0x8E, 0x63, 0xEE, 0xF8, 0xEE, 0xE0, 0xDD, 0x38};
    Put(f, f.size(), marker, 16);
    f.resize(f.size() + 16, 0);
    PutLe32(&f[3 * 4096 + 20], 100);
    f.resize(f.size() + 100 + 32, 0x12);
    EXPECT_EQ(CarveOne(indd, f).size, 3 * 4096u + 32 + 100 + 32);
    EXPECT_EQ(CarveOne(ShippedRecord(276, ".indb"), f).size, 0u); // a document is not a book
    f[24] = 3;
    EXPECT_EQ(CarveOne(indd, f).size, 0u);
}

std::vector<uint8_t> Riff(const char* form, const char* first, size_t bytes) {
    std::vector<uint8_t> f(bytes, 0x31);
    Put(f, 0, "RIFF", 4);
    PutLe32(&f[4], uint32_t(bytes - 8));
    Put(f, 8, form, 4);
    Put(f, 12, first, 4);
    return f;
}

TEST(FamilyWalks, AviContinuationChunksAreAdded) {
    auto avi = Riff("AVI ", "LIST", 2000);
    Put(avi, 20, "hdrl", 4);
    auto avix = Riff("AVIX", "LIST", 1500);
    auto both = avi;
    both.insert(both.end(), avix.begin(), avix.end());
    EXPECT_EQ(CarveOne(ShippedRecord(4, ".avi"), both).size, 3500u);
    // A Wave file is not an AVI, and the other way round.
    auto wav = Riff("WAVE", "fmt ", 1000);
    EXPECT_EQ(CarveOne(ShippedRecord(4, ".avi"), wav).size, 0u);
    EXPECT_EQ(CarveOne(ShippedRecord(68, ".wav"), wav).size, 1000u);
    EXPECT_EQ(CarveOne(ShippedRecord(68, ".wav"), avi).size, 0u);
}

TEST(FamilyWalks, UnselectedClassesStillWalk) {
    // The classes no type id selects are never made for a record...
    auto table = LoadSignatureTable(std::string(KESTRIN_SOURCE_DIR) + "/data/signatures.txt");
    ASSERT_TRUE(table);
    for (const SignatureRecord& row : *table)
        for (auto& s : MakeScanners(row)) {
            EXPECT_EQ(dynamic_cast<CASFScanner*>(s.get()), nullptr);
            EXPECT_EQ(dynamic_cast<CWMAScanner*>(s.get()), nullptr);
            EXPECT_EQ(dynamic_cast<CDBFScanner*>(s.get()), nullptr);
        }
    // ...but each one is a working member: an ASF header with its file-properties object.
    std::vector<uint8_t> asf(30 + 104 + 24 + 16, 0);
    const uint8_t header[16] = {0x30, 0x26, 0xB2, 0x75, 0x8E, 0x66, 0xCF, 0x11,
                                0xA6, 0xD9, 0x00, 0xAA, 0x00, 0x62, 0xCE, 0x6C};
    const uint8_t props[16] = {0xA1, 0xDC, 0xAB, 0x8C, 0x47, 0xA9, 0xCF, 0x11,
                               0x8E, 0xE4, 0x00, 0xC0, 0x0C, 0x20, 0x53, 0x65};
    Put(asf, 0, header, 16);
    PutLe64(&asf[16], 30 + 104);
    PutLe32(&asf[24], 1);
    Put(asf, 30, props, 16);
    PutLe64(&asf[46], 104);
    PutLe64(&asf[30 + 40], 5000);
    asf.resize(5000, 0x42);
    SignatureRecord r;
    r.header.assign(header, header + 16);
    r.extension = ".asf";
    for (auto [scanner, expected] : {std::pair<CScanner*, uint64_t>{new CASFScanner, 5000},
                                     std::pair<CScanner*, uint64_t>{new CWMAScanner, 0}}) {
        std::unique_ptr<CScanner> owned(scanner);
        owned->SetSignature(r);
        std::vector<uint8_t> image(512 * 2, 0x01);
        image.insert(image.end(), asf.begin(), asf.end());
        image.resize(image.size() + 1024, 0);
        CPhysicalDisk disk;
        disk.Attach(std::make_unique<MemorySource>(image));
        disk.SetSectorSize(512);
        disk.SetSectorCount(image.size() / 512);
        CSectorReader reader(disk);
        owned->SetReader(&reader);
        std::span<const uint8_t> sector(image.data() + 1024, 512);
        ASSERT_TRUE(owned->IsHeader(sector));
        owned->Verify(2, sector);
        EXPECT_EQ(owned->FindFileSize(2, sector), expected); // no audio stream: not a WMA
    }
}

// The loop's scanners look at their files through the read-ahead, whose views end with a chunk
// where a whole span still fits after the place looked at; they must find exactly what they find
// with their own reads of whole windows. Every sample, laid across chunk boundaries at several
// distances from them, through the loop and asked sector by sector.
TEST(FamilyWalks, ReadAheadViewsFindWhatOwnReadsFind) {
    const char* samples[] = {"sample.zip",  "sample-stream.zip", "sample-descriptor.zip", "sample.docx", "sample.xlsx",
                             "sample.pptx", "sample.pdf",        "sample.png",            "sample.gif",  "sample.bmp",
                             "sample.tif",  "sample.psd",        "sample.avi",            "sample.wav",  "sample.aiff",
                             "sample.mp4",  "sample.m4a",        "sample.3gp",            "sample.rm",   "sample.swf",
                             "sample.7z",   "sample.cab",        "sample.mid",            "sample.amr"};
    std::mt19937 rng(11);
    // Chunk j holds sample j % 24, starting 1 to 24 sectors before the chunk's end, so that the
    // file and the windows looked at cross into the next chunk; noise everywhere else.
    const size_t chunkBytes = size_t(kSignatureChunkSectors) * 512;
    const size_t count = std::size(samples);
    std::vector<uint8_t> image(chunkBytes * (3 * count + 1));
    for (auto& b : image) b = uint8_t(rng() | 1);
    for (size_t j = 0; j < 3 * count; ++j) {
        auto file = FamilySample(samples[j % count]);
        ASSERT_FALSE(file.empty()) << samples[j % count];
        size_t at = (j + 1) * chunkBytes - (1 + (j * 7) % 24) * 512;
        std::copy(file.begin(), file.end(), image.begin() + ptrdiff_t(at));
    }

    auto table = LoadSignatureTable(std::string(KESTRIN_SOURCE_DIR) + "/data/signatures.txt");
    ASSERT_TRUE(table);
    ScanRun run;
    // Streams that the loop jumps over are left out: the sector-by-sector run has no such rule.
    for (const SignatureRecord& r : *table)
        if (r.extension != ".mp3" && r.extension != ".mpg" && r.extension != ".mov" && r.extension != ".arj" &&
            r.extension != ".mts" && r.extension != ".m2ts")
            run.rows.push_back(r);

    std::vector<std::string> direct;
    {
        CPhysicalDisk disk;
        AttachMemory(disk, std::make_unique<MemorySource>(image));
        CSectorReader reader(disk); // no window: every look is a read of its own
        ScannerSet set = BuildScannerSet(run.rows);
        for (auto& e : set) e.scanner->SetReader(&reader);
        for (uint64_t s = 0; s < image.size() / 512; ++s) {
            std::span<const uint8_t> sector(image.data() + s * 512, 512);
            if (std::all_of(sector.begin(), sector.begin() + 8, [](uint8_t b) { return b == 0; })) continue;
            for (auto& e : set) {
                CScanner& sc = *e.scanner;
                if (!sc.IsHeader(sector) || sc.Verify(s, sector) != 1) continue;
                uint64_t size = sc.FindFileSize(s, sector), embedded = sc.GetEmbeddedSize();
                if (size == 0 && embedded == 0) continue;
                if (size) direct.push_back(std::to_string(s) + ":" + std::to_string(size));
                if (embedded && embedded < kMaxEmbeddedSize)
                    direct.push_back(std::to_string(sc.GetEmbeddedSector()) + ":" +
                                     std::to_string(embedded + sc.GetEmbeddedOffset()));
                break;
            }
        }
    }
    AttachMemory(run.disk, std::make_unique<MemorySource>(image));
    EXPECT_EQ(run.Run(), Outcome::Ok);
    std::vector<std::string> looped;
    ForEachNode(run.top.get(), [&](CNode* n) {
        if (!n->IsFolder()) looped.push_back(std::to_string(n->location) + ":" + std::to_string(n->size));
    });
    std::sort(direct.begin(), direct.end());
    std::sort(looped.begin(), looped.end());
    EXPECT_GT(direct.size(), 2 * count);
    EXPECT_EQ(looped, direct);
}

} // namespace
} // namespace kestrin::test
