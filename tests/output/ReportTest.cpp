#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "fs/CNode.h"
#include "fs/ItemTimes.h"
#include "output/Report.h"
#include "util/Digest.h"

namespace kestrin {
namespace {

std::string Hex(const std::string& text, int which) {
    auto* p = reinterpret_cast<const uint8_t*>(text.data());
    if (which == 0) {
        Md5 d;
        d.Update(p, text.size());
        return ToHex(d.Finish());
    }
    if (which == 1) {
        Sha1 d;
        d.Update(p, text.size());
        return ToHex(d.Finish());
    }
    Sha256 d;
    d.Update(p, text.size());
    return ToHex(d.Finish());
}

TEST(ReportDigest, KnownValues) {
    EXPECT_EQ(Hex("", 0), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(Hex("abc", 0), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(Hex("", 1), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    EXPECT_EQ(Hex("abc", 1), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(Hex("", 2), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    // 56 bytes: the padding needs a block of its own.
    const std::string two = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
    EXPECT_EQ(Hex(two, 0), "8215ef0796a20bcaaae116d3876c664a");
    EXPECT_EQ(Hex(two, 1), "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    EXPECT_EQ(Hex(two, 2), "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(ReportDigest, PiecesGiveTheSameDigestAsOneRun) {
    std::string data(100'003, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = char(i * 31 + (i >> 7));
    const auto* p = reinterpret_cast<const uint8_t*>(data.data());
    for (size_t piece : {1u, 7u, 63u, 64u, 65u, 4096u}) {
        Md5 m;
        Sha1 s1;
        Sha256 s2;
        for (size_t at = 0; at < data.size(); at += piece) {
            const size_t n = std::min(piece, data.size() - at);
            m.Update(p + at, n);
            s1.Update(p + at, n);
            s2.Update(p + at, n);
        }
        EXPECT_EQ(ToHex(m.Finish()), Hex(data, 0)) << piece;
        EXPECT_EQ(ToHex(s1.Finish()), Hex(data, 1)) << piece;
        EXPECT_EQ(ToHex(s2.Finish()), Hex(data, 2)) << piece;
    }
}

TEST(ItemTimes, FileSystemTimesConvert) {
    // 2023-07-09 21:14:08 as FAT stores it, with 1.99 s in the creation's 10 ms field.
    const uint16_t date = uint16_t((2023 - 1980) << 9 | 7 << 5 | 9);
    const uint16_t time = uint16_t(21 << 11 | 14 << 5 | 4);
    EXPECT_EQ(FormatIso8601(FromDosDateTime(date, time)), "2023-07-09T21:14:08Z");
    EXPECT_EQ(FormatIso8601(FromDosDateTime(date, time, 199)), "2023-07-09T21:14:09.99Z");
    EXPECT_EQ(UnixSeconds(FromDosDateTime(date, time)), 1688937248);
    // Impossible fields and date 0 are unknown, not some other day.
    EXPECT_EQ(FromDosDateTime(0, time), kNoTime);
    EXPECT_EQ(FromDosDateTime(uint16_t(date & ~0x1F), time), kNoTime);
    EXPECT_EQ(FromDosDateTime(date, uint16_t(24 << 11)), kNoTime);
    EXPECT_EQ(FromDosDateTime(date, time, 200), kNoTime);

    // exFAT: the same wall-clock time two hours east of UTC (offset +8 quarters, valid bit set),
    // and three and a half hours west (-14 quarters).
    const uint32_t stamp = uint32_t(date) << 16 | time;
    EXPECT_EQ(FormatIso8601(FromExFatTime(stamp, 50, 0x80 | 8)), "2023-07-09T19:14:08.5Z");
    EXPECT_EQ(FormatIso8601(FromExFatTime(stamp, 0, 0x80 | (128 - 14))), "2023-07-10T00:44:08Z");
    EXPECT_EQ(FormatIso8601(FromExFatTime(stamp, 0, 8)), "2023-07-09T21:14:08Z"); // offset not valid

    // NTFS: 100 ns ticks since 1601; 0 means unset.
    const uint64_t ticks = 133'334'108'481'234'567ull;
    EXPECT_EQ(FormatIso8601(FromNtfsTime(ticks)), "2023-07-09T21:14:08.1234567Z");
    EXPECT_EQ(ToTimespec(FromNtfsTime(ticks)).tv_nsec, 123'456'700);
    EXPECT_EQ(FromNtfsTime(0), kNoTime);
    // Before 1970 the seconds go negative and the fraction stays positive.
    const timespec early = ToTimespec(FromNtfsTime(116'444'736'000'000'000ull - 5));
    EXPECT_EQ(early.tv_sec, -1);
    EXPECT_EQ(early.tv_nsec, 999'999'500);
    EXPECT_EQ(FormatIso8601(FromNtfsTime(1)), "1601-01-01T00:00:00.0000001Z");
}

// What a walk keeps: entries by node, dropped or handed to another node as the walk merges
// entries, and entries by record for the items read from their records.
TEST(ItemTimes, KeptTimesFollowTheWalk) {
    CNode a, b, c, fromRecord, placeholder;
    auto at = [](FileTime t) {
        ItemTimes times;
        times.modified = t;
        return times;
    };
    KeptTimes kept;
    kept.Add(&a, at(1));
    kept.Add(&b, at(2));
    kept.Add(&c, at(3));
    kept.Drop(&c); // the entry just read is not listed
    kept.Add(&c, at(4));
    kept.Move(&a, &c); // `a` takes the newer sighting's times; `c` has none after
    kept.Drop(&c);     // not the last added any more: nothing happens
    kept.LimitRecords(100);
    fromRecord.recordId = placeholder.recordId = 42;
    fromRecord.location = 1000;
    kept.SetRecord(42, at(5));
    kept.SetRecord(100, at(6)); // past the MFT's records
    kept.Seal();

    ItemTimes out;
    ASSERT_TRUE(kept.Find(a, out));
    EXPECT_EQ(out.modified, 4);
    ASSERT_TRUE(kept.Find(b, out));
    EXPECT_EQ(out.modified, 2);
    EXPECT_FALSE(kept.Find(c, out));
    ASSERT_TRUE(kept.Find(fromRecord, out));
    EXPECT_EQ(out.modified, 5);
    // A node at that number that no record was read for (a folder known only by name).
    EXPECT_FALSE(kept.Find(placeholder, out));
}

TEST(ReportOptions, NamesAreChecked) {
    EXPECT_EQ(ParseReportFormat("dfxml"), ReportFormat::Dfxml);
    EXPECT_EQ(ParseReportFormat("bodyfile"), ReportFormat::Bodyfile);
    EXPECT_FALSE(ParseReportFormat("xml"));
    ReportDigests d;
    EXPECT_TRUE(ParseReportDigests("sha256,md5", d));
    EXPECT_TRUE(d.md5 && d.sha256 && !d.sha1);
    EXPECT_FALSE(ParseReportDigests("md5,", d));
    EXPECT_FALSE(ParseReportDigests("crc32", d));
    EXPECT_FALSE(ParseReportDigests("", d));
}

} // namespace
} // namespace kestrin
