// JPEG and compound-document scanners on real samples (cut from generated carve images) and on
// damaged variants of them.
#include <gtest/gtest.h>

#include <random>

#include "CarveTestUtil.h"
#include "carve/CSectorReader.h"
#include "carve/scanners/CDOCScanner.h"
#include "carve/scanners/CJpgScanner.h"
#include "carve/scanners/CPPTScanner.h"
#include "carve/scanners/CXLSScanner.h"
#include "util/Bytes.h"

namespace kestrin::test {
namespace {

constexpr uint32_t kSector = 512;

SignatureRecord Shipped(uint32_t typeId, std::string ext, std::vector<uint8_t> header) {
    SignatureRecord r;
    r.typeId = typeId;
    r.extension = std::move(ext);
    r.header = std::move(header);
    r.category = 4;
    return r;
}
const SignatureRecord kJpeg = Shipped(11, ".jpg", {0xFF, 0xD8, 0xFF});

// Noise without sector-start JPEG or compound magic; seeded, so runs repeat.
std::vector<uint8_t> Noise(size_t bytes, uint32_t seed = 7) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(bytes);
    for (auto& b : v) b = uint8_t(rng() % 0xFE + 1);
    return v;
}

// A minimal baseline-shaped JPEG: SOI, APP0, `extra` comment segments, SOS, scan data without
// 0xFF bytes, and an EOI when asked.
std::vector<uint8_t> SyntheticJpeg(int extra, size_t scanBytes, bool eoi) {
    std::vector<uint8_t> j = {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x10, 'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0};
    for (int i = 0; i < extra; ++i) j.insert(j.end(), {0xFF, 0xFE, 0x00, 0x04, 'h', 'i'});
    j.insert(j.end(), {0xFF, 0xDA, 0x00, 0x08, 1, 1, 0, 0, 0x3F, 0});
    for (size_t i = 0; i < scanBytes; ++i) j.push_back(uint8_t(i % 200 + 1));
    if (eoi) j.insert(j.end(), {0xFF, 0xD9});
    return j;
}

std::vector<std::string> ScanJpegs(std::vector<uint8_t> image) {
    ScanRun run;
    AttachMemory(run.disk, std::make_unique<MemorySource>(std::move(image)));
    run.rows = {kJpeg};
    run.Run();
    return run.Files();
}

TEST(JpgScanner, RealSamplesGetTheirExactSize) {
    auto a = ReadDataFile("jfif-2757.jpg");
    auto b = ReadDataFile("progressive-9414.jpg");
    ASSERT_EQ(a.size(), 2757u);
    ASSERT_EQ(b.size(), 9414u);
    auto image = Noise(64 * kSector);
    Put(image, 3 * kSector, a);
    Put(image, 20 * kSector, b);
    EXPECT_EQ(ScanJpegs(image),
              (std::vector<std::string>{"jpg[1-1000]/file#2.jpg@20:9414", "jpg[1-1000]/file#1.jpg@3:2757"}));
}

TEST(JpgScanner, TruncatedOrDamagedSamplesAreNotCarved) {
    auto sample = ReadDataFile("jfif-2757.jpg");
    // Cut inside the scan data, zeros to the end of the source: no end marker anywhere.
    auto cut = std::vector<uint8_t>(sample.begin(), sample.begin() + 1600);
    auto image = std::vector<uint8_t>(40 * kSector, 0);
    Put(image, 2 * kSector, cut);
    EXPECT_TRUE(ScanJpegs(image).empty());
    // First segment length pointing at a byte that is not a marker.
    auto damaged = sample;
    PutBe16(damaged.data() + 4, 0x0100);
    ASSERT_NE(damaged[0x104], 0xFF);
    image.assign(40 * kSector, 0);
    Put(image, 2 * kSector, damaged);
    EXPECT_TRUE(ScanJpegs(image).empty());
    // A later segment length that leads off the marker chain.
    damaged = sample;
    PutBe16(damaged.data() + 22, 0x0050);
    image.assign(40 * kSector, 0);
    Put(image, 2 * kSector, damaged);
    EXPECT_TRUE(ScanJpegs(image).empty());
}

TEST(JpgScanner, AtMostFifteenSegmentsAfterTheFirst) {
    for (int extra : {15, 16}) {
        auto jpeg = SyntheticJpeg(extra, 3000, true);
        auto image = std::vector<uint8_t>(40 * kSector, 0);
        Put(image, kSector, jpeg);
        auto files = ScanJpegs(image);
        if (extra == 15) EXPECT_EQ(files, std::vector<std::string>{"jpg[1-1000]/file#1.jpg@1:" + std::to_string(jpeg.size())});
        else EXPECT_TRUE(files.empty());
    }
}

TEST(JpgScanner, NextJpegOfTheSameKindEndsOneBytePastTheBoundary) {
    auto open = SyntheticJpeg(0, 5000, false); // no end marker
    auto next = SyntheticJpeg(0, 700, true);
    auto image = std::vector<uint8_t>(40 * kSector, 0);
    Put(image, 0, open);
    Put(image, 12 * kSector, next);
    EXPECT_EQ(ScanJpegs(image), (std::vector<std::string>{"jpg[1-1000]/file#2.jpg@12:" + std::to_string(next.size()),
                                                          "jpg[1-1000]/file#1.jpg@0:" + std::to_string(12 * kSector + 1)}));
}

TEST(JpgScanner, SearchGivesUpAfter30MiB) {
    auto open = SyntheticJpeg(0, 1000, false);
    std::vector<uint8_t> image(31u << 20);
    for (size_t i = 0; i < image.size(); ++i) image[i] = uint8_t(i % 251 + 1); // no 0xFF at all
    Put(image, 0, open);
    EXPECT_TRUE(ScanJpegs(image).empty());
}

TEST(JpgScanner, FailedReadInTheScanDataSkipsAhead) {
    auto jpeg = SyntheticJpeg(2, 120000, true);
    std::vector<uint8_t> image(400 * kSector, 0);
    Put(image, 0, jpeg);
    // Offered directly: the loop's own first chunk would be unreadable as well.
    CPhysicalDisk disk;
    AttachMemory(disk, std::make_unique<FailingSource>(image, 50000, 50001, 23));
    CSectorReader reader(disk);
    CJpgScanner s;
    s.SetSignature(kJpeg);
    s.SetReader(&reader);
    std::span<const uint8_t> first(image.data(), kSector);
    ASSERT_TRUE(s.IsHeader(first));
    ASSERT_EQ(s.Verify(0, first), 1);
    EXPECT_EQ(s.FindFileSize(0, first), jpeg.size());
}

// --- compound documents ---

std::vector<uint8_t> DocWithoutFatHole() {
    auto doc = ReadDataFile("libreoffice.doc");
    // The writer leaves allocation entry 1 free; the size rule counts up to the first free entry.
    PutLe32(doc.data() + 512 + 4, 0xFFFFFFFE);
    return doc;
}

struct DirectScan {
    CPhysicalDisk disk;
    std::unique_ptr<CSectorReader> reader;
    std::vector<uint8_t> image;
    explicit DirectScan(std::vector<uint8_t> img) : image(std::move(img)) {
        AttachMemory(disk, std::make_unique<MemorySource>(image));
        reader = std::make_unique<CSectorReader>(disk);
    }
    uint64_t Size(CScanner& s, const SignatureRecord& r, uint64_t sector) {
        s.SetSignature(r);
        s.SetReader(reader.get());
        std::span<const uint8_t> sec(image.data() + sector * kSector, kSector);
        if (!s.IsHeader(sec) || s.Verify(sector, sec) != 1) return 0;
        return s.FindFileSize(sector, sec);
    }
};

const SignatureRecord kDoc = Shipped(235, ".doc", {0xD0, 0xCF});
const SignatureRecord kXls = Shipped(235, ".xls", {0xD0, 0xCF});
const SignatureRecord kPpt = Shipped(501, ".ppt", {0xD0, 0xCF});

TEST(CompoundScanner, AllocationTableSizeReadsItsSectorFromTheStartOfTheSource) {
    auto doc = DocWithoutFatHole();
    std::vector<uint8_t> image(100 * kSector, 0);
    Put(image, 0, doc);
    CDOCScanner s;
    EXPECT_EQ(DirectScan(image).Size(s, kDoc, 0), doc.size()); // 13,312: exact at the start
    image.assign(100 * kSector, 0);
    Put(image, 40 * kSector, doc);
    // Elsewhere the last table sector is read at sector 1 of the source (zeros here): all 128
    // entries count, 128 × 512 + 512.
    EXPECT_EQ(DirectScan(image).Size(s, kDoc, 40), 66048u);
}

TEST(CompoundScanner, EachClassNeedsItsOwnStream) {
    auto xls = ReadDataFile("libreoffice.xls");
    auto ppt = xls;
    // Rename the "Workbook" entry: a presentation as far as the directory check can tell.
    std::u16string name = u"PowerPoint Document";
    bool renamed = false;
    for (size_t at = 0; at + 128 <= ppt.size(); at += 128) {
        if (Le16(ppt.data() + at) == 'W' && Le16(ppt.data() + at + 2) == 'o' && Le16(ppt.data() + at + 16) == 0 &&
            Le16(ppt.data() + at + 14) == 'k') {
            std::fill(ppt.begin() + at, ppt.begin() + at + 64, 0);
            for (size_t i = 0; i < name.size(); ++i) PutLe16(ppt.data() + at + 2 * i, name[i]);
            renamed = true;
        }
    }
    ASSERT_TRUE(renamed);
    ScanRun run;
    std::vector<uint8_t> image(200 * kSector, 0);
    Put(image, 0, xls);
    Put(image, 100 * kSector, ppt);
    AttachMemory(run.disk, std::make_unique<MemorySource>(image));
    run.rows = {kDoc, kXls, kPpt};
    run.Run();
    auto files = run.Files();
    ASSERT_EQ(files.size(), 2u);
    EXPECT_EQ(files[0].rfind("ppt[1-1000]/file#1.ppt@100:", 0), 0u) << files[0];
    EXPECT_EQ(files[1].rfind("xls[1-1000]/file#1.xls@0:", 0), 0u) << files[1];
}

TEST(CompoundScanner, DamagedOrInterruptedFilesAreNotCarved) {
    auto doc = DocWithoutFatHole();
    CDOCScanner s;
    // Another compound header before the directory.
    std::vector<uint8_t> image(100 * kSector, 0);
    Put(image, 0, doc);
    std::copy_n(doc.begin(), 8, image.begin() + 5 * kSector);
    EXPECT_EQ(DirectScan(image).Size(s, kDoc, 0), 0u);
    // Cut before its directory.
    image.assign(100 * kSector, 0);
    Put(image, 0, std::vector<uint8_t>(doc.begin(), doc.begin() + 6000));
    EXPECT_EQ(DirectScan(image).Size(s, kDoc, 0), 0u);
    // A sector shift no container uses.
    image.assign(100 * kSector, 0);
    Put(image, 0, doc);
    PutLe16(image.data() + 30, 40);
    EXPECT_EQ(DirectScan(image).Size(s, kDoc, 0), 0u);
    // Extra allocation-index sectors: the estimate, not the true size.
    PutLe16(image.data() + 30, 9);
    PutLe32(image.data() + 72, 1);
    EXPECT_EQ(DirectScan(image).Size(s, kDoc, 0), 512u * (16384 + 13952));
}

TEST(CompoundScanner, DirectoryFurtherThan20MiBIsNotFound) {
    auto doc = DocWithoutFatHole();
    const uint64_t limit = 0x1400000 / kSector;
    for (uint64_t at : {limit - 1, limit}) {
        std::vector<uint8_t> image((limit + 4) * kSector, 0);
        Put(image, 0, std::vector<uint8_t>(doc.begin(), doc.begin() + kSector));
        std::u16string name = u"WordDocument";
        for (size_t i = 0; i < name.size(); ++i) PutLe16(image.data() + at * kSector + 2 * i, name[i]);
        CDOCScanner s;
        uint64_t size = DirectScan(image).Size(s, kDoc, 0);
        if (at < limit) EXPECT_GT(size, 0u);
        else EXPECT_EQ(size, 0u);
    }
}

} // namespace
} // namespace kestrin::test
