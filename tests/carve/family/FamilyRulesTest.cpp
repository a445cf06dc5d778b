// The members whose rules are given field by field, the class choice, and the walks that need
// hand-made structures (a camera raw with its preview, boxes that claim the rest of the file).
#include <gtest/gtest.h>

#include <cstring>
#include <typeinfo>

#include "carve/family/FamilyTestUtil.h"
#include "carve/scanners/family/FamilyMember.h"
#include "util/Bytes.h"

namespace kestrin::test {
namespace {

std::vector<uint8_t> Sector(const void* magic, size_t n, size_t size = 512) {
    std::vector<uint8_t> s(size, 0x11);
    std::memcpy(s.data(), magic, n);
    return s;
}

TEST(FamilyRules, BitmapNeedsTheClassicHeaderAndIsCappedAt60MiB) {
    SignatureRecord bmp = ShippedRecord(142, ".bmp");
    auto file = Sector("BM", 2, 2048);
    PutLe32(&file[2], 1500);
    std::memset(&file[6], 0, 4);
    PutLe32(&file[14], 40);
    EXPECT_EQ(CarveOne(bmp, file).size, 1500u);
    PutLe32(&file[2], 100u << 20);
    EXPECT_EQ(CarveOne(bmp, file).size, 0x3C00000u);
    PutLe32(&file[14], 124); // a later information header: not this rule's bitmap
    EXPECT_EQ(CarveOne(bmp, file).size, 0u);
    PutLe32(&file[14], 40);
    file[7] = 1; // reserved field set
    EXPECT_EQ(CarveOne(bmp, file).size, 0u);
}

TEST(FamilyRules, ArchiveSizesAboveTheLimitGive300MiB) {
    auto cab = Sector("MSCF", 4);
    PutLe32(&cab[8], 0x77000001);
    EXPECT_EQ(CarveOne(ShippedRecord(517, ".cab"), cab).size, 314572800u);
    PutLe32(&cab[8], 0x77000000);
    EXPECT_EQ(CarveOne(ShippedRecord(517, ".cab"), cab).size, 0x77000000u);

    auto sz = Sector("7z\xBC\xAF\x27\x1C", 6);
    PutLe32(&sz[12], 1000);
    PutLe32(&sz[20], 62);
    EXPECT_EQ(CarveOne(ShippedRecord(516, ".7z"), sz).size, 1094u);
    PutLe32(&sz[12], 0x77000000);
    EXPECT_EQ(CarveOne(ShippedRecord(516, ".7z"), sz).size, 314572800u);
}

TEST(FamilyRules, PersonalFoldersVersionAndWidth) {
    auto pst = Sector("!BDN", 4);
    std::memcpy(&pst[8], "SM", 2);
    PutLe32(&pst[168], 271360);
    PutLe64(&pst[184], 0x123456789ull);
    for (uint8_t v : {14, 15}) {
        pst[10] = v;
        EXPECT_EQ(CarveOne(ShippedRecord(136, ".pst"), pst).size, 271360u);
    }
    for (uint8_t v : {21, 23}) {
        pst[10] = v;
        EXPECT_EQ(CarveOne(ShippedRecord(137, ".ost"), pst).size, 0x123456789ull);
    }
    pst[10] = 16;
    EXPECT_EQ(CarveOne(ShippedRecord(136, ".pst"), pst).size, 0u);
}

TEST(FamilyRules, RealAudioLengthPlus40AndTheSmallCeiling) {
    auto ra = Sector(".ra\xFD", 4);
    PutBe32(&ra[8], 0x2E726134);
    PutBe32(&ra[12], 1000);
    EXPECT_EQ(CarveOne(ShippedRecord(69, ".ra"), ra).size, 1040u);
    PutBe32(&ra[12], 0);
    EXPECT_EQ(CarveOne(ShippedRecord(69, ".ra"), ra).size, 0u);
    PutBe32(&ra[12], 0xA0000000);
    EXPECT_EQ(CarveOne(ShippedRecord(69, ".ra"), ra).size, 1024u);
    PutBe32(&ra[8], 0x2E726133);
    EXPECT_EQ(CarveOne(ShippedRecord(69, ".ra"), ra).size, 0u);
}

TEST(FamilyRules, CompressedFlashGetsTheFixedSize) {
    auto swf = Sector("CWS", 3);
    PutLe32(&swf[4], 5000);
    EXPECT_EQ(CarveOne(ShippedRecord(507, ".swf"), swf).size, 1048576u);
    auto plain = Sector("FWS", 3);
    PutLe32(&plain[4], 5000);
    EXPECT_EQ(CarveOne(ShippedRecord(506, ".swf"), plain).size, 5000u);
}

TEST(FamilyRules, FujiSizeVariantsAndPreview) {
    SignatureRecord raf = ShippedRecord(215, ".raf");
    auto f = Sector("FUJIFILMCCD-RAW 0201", 20, 1024);
    PutBe32(&f[84], 1300);  // preview offset
    PutBe32(&f[88], 20000); // preview length
    PutBe32(&f[100], 30000);
    PutBe32(&f[104], 50000);
    PutBe32(&f[128], 0);
    PutBe32(&f[132], 0);
    CarveResult r = CarveOne(raf, f);
    EXPECT_EQ(r.size, 80000u);
    EXPECT_EQ(r.embeddedSize, 20000u);
    EXPECT_EQ(r.embeddedSector, kSampleSector + 1300 / 512);
    EXPECT_EQ(r.embeddedOffset, 1300u % 512);
    PutBe32(&f[132], 50000); // equals the length: added to the end
    EXPECT_EQ(CarveOne(raf, f).size, 130000u);
    PutBe32(&f[128], 80000); // the end itself: that value plus the one at 132
    PutBe32(&f[132], 7000);
    EXPECT_EQ(CarveOne(raf, f).size, 87000u);
    PutBe32(&f[104], 0x7FFFFFFF);
    EXPECT_EQ(CarveOne(raf, f).size, 0x3C00000u);
}

// A box file: ftyp with `brands` (text), then the given boxes.
std::vector<uint8_t> IsoFile(const std::string& brands, std::vector<std::pair<std::string, uint32_t>> boxes) {
    std::vector<uint8_t> f(8 + brands.size());
    PutBe32(f.data(), uint32_t(f.size()));
    std::memcpy(&f[4], "ftyp", 4);
    std::memcpy(&f[8], brands.data(), brands.size());
    for (auto& [type, size] : boxes) {
        size_t at = f.size();
        f.resize(at + std::max<uint32_t>(size, 8), 0x22);
        PutBe32(&f[at], size);
        std::memcpy(&f[at + 4], type.data(), 4);
    }
    return f;
}

TEST(FamilyRules, Mp4BrandTestAndBoxWalk) {
    SignatureRecord mp4 = ShippedRecord(3470, ".mp4");
    auto f = IsoFile(std::string("isom\0\0\2\0isomavc1mp41", 20), {{"free", 8}, {"mdat", 3000}, {"moov", 700}});
    EXPECT_EQ(CarveOne(mp4, f).size, f.size());
    // Another member's brand seen before "mp4" / "avc": not this member's file.
    auto qt = IsoFile(std::string("qt  \0\0\2\0mp41", 12), {{"mdat", 100}, {"moov", 100}});
    EXPECT_EQ(CarveOne(mp4, qt).size, 0u);
    EXPECT_EQ(CarveOne(ShippedRecord(15, ".mov"), qt).size, qt.size());
    // No brand of either list within the first 500 bytes.
    auto none = IsoFile(std::string("abcd\0\0\0\0", 8), {{"mdat", 600}, {"moov", 100}});
    EXPECT_EQ(CarveOne(mp4, none).size, 0u);
    // A box that claims the rest of the file cannot be carved.
    auto open = IsoFile("mp42", {{"moov", 100}, {"mdat", 0}});
    EXPECT_EQ(CarveOne(mp4, open).size, 0u);
    // A 64-bit box size.
    auto wide = IsoFile("mp42", {{"moov", 100}, {"mdat", 1}});
    size_t at = wide.size() - 8;
    wide.resize(at + 2000, 0x33);
    PutBe64(&wide[at + 8], 2000);
    EXPECT_EQ(CarveOne(mp4, wide).size, wide.size());
}

// A little TIFF-based raw: IFD0 (maker, model, preview JPEG) and one sub-IFD with a colour-filter
// strip.
std::vector<uint8_t> RawFile(const char* make, const char* model) {
    std::vector<uint8_t> f(4096, 0x44);
    std::memcpy(f.data(), "II*\0", 4);
    PutLe32(&f[4], 8);
    struct E { uint16_t tag, type; uint32_t count, value; };
    auto ifd = [&](size_t at, std::vector<E> es, uint32_t next) {
        PutLe16(&f[at], uint16_t(es.size()));
        for (size_t i = 0; i < es.size(); ++i) {
            uint8_t* p = &f[at + 2 + i * 12];
            PutLe16(p, es[i].tag);
            PutLe16(p + 2, es[i].type);
            PutLe32(p + 4, es[i].count);
            PutLe32(p + 8, es[i].value);
        }
        PutLe32(&f[at + 2 + es.size() * 12], next);
    };
    std::strcpy(reinterpret_cast<char*>(&f[200]), make);
    std::strcpy(reinterpret_cast<char*>(&f[240]), model);
    ifd(8, {{271, 2, uint32_t(std::strlen(make) + 1), 200}, {272, 2, uint32_t(std::strlen(model) + 1), 240},
            {330, 4, 1, 300}, {513, 4, 1, 1000}, {514, 4, 1, 700}}, 0);
    ifd(300, {{259, 3, 1, 34713}, {262, 3, 1, 32803}, {273, 4, 1, 2000}, {279, 4, 1, 1901}}, 0);
    f[1000] = 0xFF;
    f[1001] = 0xD8;
    f.resize(3901 + 1); // strip end 3901, padded to the word boundary
    return f;
}

TEST(FamilyRules, CameraRawSizeAndPreviewAndTheMakersRow) {
    auto nef = RawFile("NIKON CORPORATION", "NIKON D750");
    CarveResult r = CarveOne(ShippedRecord(212, ".dng"), nef);
    EXPECT_EQ(r.size, 0u); // no DNG version
    SignatureRecord nefRow = ShippedRecord(211, ".nef");
    nefRow.header = {'I', 'I', 42, 0};
    r = CarveOne(nefRow, nef);
    EXPECT_EQ(r.size, nef.size());
    EXPECT_EQ(r.embeddedSize, 700u);
    EXPECT_EQ(r.embeddedSector, kSampleSector + 1000 / 512);
    EXPECT_EQ(r.embeddedOffset, 1000u % 512);
    // The same layout from another maker is not a Nikon file, and no plain TIFF either.
    EXPECT_EQ(CarveOne(nefRow, RawFile("SONY", "ILCE-7")).size, 0u);
    EXPECT_EQ(CarveOne(ShippedRecord(10, ".tif"), nef).size, 0u);
    EXPECT_EQ(CarveOne(ShippedRecord(211, ".arw"), RawFile("SONY", "ILCE-7")).size, nef.size());
    // Epson raws have no embedded item.
    r = CarveOne(ShippedRecord(211, ".erf"), RawFile("SEIKO EPSON CORP.", "R-D1"));
    EXPECT_EQ(r.size, nef.size());
    EXPECT_EQ(r.embeddedSize, 0u);
}

TEST(FamilyRules, ClassChoiceByTypeIdAndExtension) {
    SignatureRecord r = ShippedRecord(10, ".tif");
    r.extension = ".TIF";
    EXPECT_TRUE(MakeScanners(r).empty());
    r.extension = ".tiff";
    EXPECT_EQ(MakeScanners(r).size(), 1u);
    EXPECT_EQ(MakeScanners(ShippedRecord(214, ".rw2")).size(), 2u);
    SignatureRecord office = ShippedRecord(95, ".docx");
    office.extension = ".odt";
    EXPECT_TRUE(MakeScanners(office).empty());
}

TEST(FamilyRules, MemberRowsAgreeWithTheShippedTableAndTheClassTable) {
    auto table = LoadSignatureTable(std::string(KESTRIN_SOURCE_DIR) + "/data/signatures.txt");
    ASSERT_TRUE(table);
    for (const FamilyMember& m : FamilyMembers()) {
        auto own = m.make();
        const std::type_info& cls = typeid(*own);
        auto makesIt = [&](const SignatureRecord& r) {
            for (auto& s : MakeScanners(r))
                if (typeid(*s) == cls) return true;
            return false;
        };
        if (m.typeId == 0) {
            for (const SignatureRecord& r : *table) EXPECT_FALSE(makesIt(r)) << m.extension << " " << r.extension;
            continue;
        }
        SignatureRecord r = ShippedRecord(m.typeId, std::string(m.extension));
        EXPECT_EQ(std::string(r.header.begin(), r.header.end()), m.header) << m.extension;
        EXPECT_EQ(r.headerOffset, m.headerOffset) << m.extension;
        EXPECT_EQ(r.category, m.category) << m.extension;
        EXPECT_TRUE(makesIt(r)) << m.typeId << " " << m.extension;
    }
}

} // namespace
} // namespace kestrin::test
