// Each walking member on a small real file (made by an encoder or cut from a carve image): the
// exact size at a sector boundary between noise, the same file cut short, and the file with one
// length field destroyed.
#include <gtest/gtest.h>

#include "carve/family/FamilyTestUtil.h"

namespace kestrin::test {
namespace {

struct Sample {
    const char* file;
    uint32_t typeId;
    const char* ext;
    size_t corruptAt; // a length or pointer field; 0 = none
    uint32_t corruptBytes;
    bool headerOnly = false; // the size is a header field taken as it stands
};

std::ostream& operator<<(std::ostream& os, const Sample& s) { return os << s.file; }

class FamilySampleTest : public ::testing::TestWithParam<Sample> {};

TEST_P(FamilySampleTest, ExactTruncatedAndCorrupted) {
    const Sample& s = GetParam();
    std::vector<uint8_t> file = FamilySample(s.file);
    ASSERT_FALSE(file.empty()) << s.file;
    SignatureRecord record = ShippedRecord(s.typeId, s.ext);
    ASSERT_FALSE(record.header.empty()) << "no shipped record " << s.typeId << " " << s.ext;

    EXPECT_EQ(CarveOne(record, file).size, file.size());
    // 4096-byte sectors give the same size.
    EXPECT_EQ(CarveOne(record, file, false, 4096).size, file.size());

    if (!s.headerOnly) {
        // Cut in the middle and followed by nothing: declined, or never past what is there.
        std::vector<uint8_t> cut(file.begin(), file.begin() + ptrdiff_t(file.size() / 2));
        CarveResult r = CarveOne(record, cut, true);
        EXPECT_TRUE(r.size == 0 || r.size <= (cut.size() + 511) / 512 * 512) << r.size;
    }
    if (s.corruptAt) {
        std::vector<uint8_t> bad = file;
        ASSERT_LE(s.corruptAt + s.corruptBytes, bad.size());
        for (uint32_t i = 0; i < s.corruptBytes; ++i) bad[s.corruptAt + i] = 0xFF;
        EXPECT_NE(CarveOne(record, bad).size, file.size());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Samples, FamilySampleTest,
    ::testing::Values(Sample{"sample.mid", 9, ".mid", 18, 4}, Sample{"sample.7z", 516, ".7z", 12, 4, true},
                      Sample{"sample.cab", 517, ".cab", 8, 4, true}, Sample{"sample.arj", 32, ".arj", 2, 2},
                      Sample{"sample.zip", 55, ".zip", 18, 4},
                      Sample{"sample-stream.zip", 55, ".zip", 0, 0}, Sample{"sample-descriptor.zip", 55, ".zip", 0, 0}, Sample{"sample.docx", 95, ".docx", 18, 4},
                      Sample{"sample.xlsx", 95, ".xlsx", 18, 4}, Sample{"sample.pptx", 95, ".pptx", 18, 4},
                      Sample{"sample.png", 185, ".png", 8, 4}, Sample{"sample.gif", 162, ".gif", 0, 0},
                      Sample{"sample.bmp", 142, ".bmp", 2, 4, true}, Sample{"sample.tif", 10, ".tif", 4, 4},
                      Sample{"sample.psd", 189, ".psd", 26, 4}, Sample{"sample.pdf", 110, ".pdf", 0, 0},
                      Sample{"sample.mp3", 62, ".mp3", 6, 4}, Sample{"sample.mp4", 3470, ".mp4", 0, 4},
                      Sample{"sample.mov", 15, ".mov", 0, 4}, Sample{"sample.3gp", 3367, ".3gp", 0, 4},
                      Sample{"sample.m4a", 4134, ".m4a", 0, 4}, Sample{"sample.m4b", 4234, ".m4b", 0, 4},
                      Sample{"sample.m4v", 5634, ".m4v", 0, 4}, Sample{"sample.wav", 68, ".wav", 4, 4},
                      Sample{"sample.aiff", 4149, ".aiff", 4, 4}, Sample{"sample.avi", 4, ".avi", 4, 4},
                      Sample{"sample-divx.avi", 510, ".avi", 4, 4}, Sample{"sample-xvid.avi", 511, ".avi", 4, 4},
                      Sample{"sample.mpg", 18, ".mpg", 0, 0}, Sample{"sample.mts", 278, ".mts", 188 * 9, 1},
                      Sample{"sample.m2ts", 279, ".m2ts", 192 * 9 + 4, 1}, Sample{"sample.rm", 65, ".rm", 22, 4},
                      Sample{"sample.amr", 2141, ".amr", 0, 0}, Sample{"sample.swf", 506, ".swf", 4, 4, true}));

} // namespace
} // namespace kestrin::test
