#include <gtest/gtest.h>

#include "OutputTestUtil.h"
#include "output/DiskImage.h"
#include "storage/ByteSource.h"

namespace kestrin {
namespace {

using test::CapturedMessages;
using test::ReadAll;
using test::ScratchDir;
using test::TestContext;

std::vector<uint8_t> Pattern(size_t n) {
    std::vector<uint8_t> d(n);
    for (size_t i = 0; i < n; ++i) d[i] = uint8_t(i * 13 + (i >> 9) + 1);
    return d;
}

TEST(DiskImage, BadSectorsBecomeZerosAndAreMapped) {
    ScratchDir dir("image");
    // 300 sectors: two full blocks of 128 and a short one; sectors 130-132 and 299 cannot be read.
    auto data = Pattern(300 * 512);
    auto* src = new MemorySource(data);
    src->FailReadsAt(130 * 512 + 17, 3 * 512 - 17 - 100);
    CPhysicalDisk media;
    media.Attach(std::unique_ptr<ByteSource>(src));
    media.SetSectorSize(512);
    media.SetSectorCount(300);
    TestContext tc;
    CapturedMessages msgs;
    ImageResult r = CreateDiskImage(media, dir / "out.img", tc.ctx, msgs);
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.badSectors, 3u);
    EXPECT_EQ(r.sectors, 300u);
    EXPECT_TRUE(msgs.shown.empty());
    auto out = ReadAll(dir / "out.img");
    ASSERT_EQ(out.size(), data.size());
    auto expect = data;
    std::fill(expect.begin() + 130 * 512, expect.begin() + 133 * 512, 0);
    EXPECT_EQ(out, expect);
    auto map = ReadAll(r.mapPath);
    std::string text(map.begin(), map.end());
    EXPECT_NE(text.find("\n130 3\n"), std::string::npos) << text;
    EXPECT_EQ(tc.op.done.load(), 300);

    // A partition range: only its sectors, counted from its start; a clean copy leaves no map.
    media.SetFirstSector(200);
    media.SetSectorCount(50);
    r = CreateDiskImage(media, dir / "out.img", tc.ctx, msgs);
    EXPECT_EQ(r.badSectors, 0u);
    EXPECT_TRUE(r.mapPath.empty());
    EXPECT_FALSE(std::filesystem::exists(dir / "out.img.map"));
    EXPECT_EQ(ReadAll(dir / "out.img"), std::vector<uint8_t>(data.begin() + 200 * 512, data.begin() + 250 * 512));
}

TEST(DiskImage, RefusesToWriteOntoTheSource) {
    ScratchDir dir("image-self");
    auto data = Pattern(64 * 512);
    test::WriteAll(dir / "src.img", data);
    CPhysicalDisk media;
    ASSERT_TRUE(media.AttachImageFile(dir / "src.img"));
    TestContext tc;
    CapturedMessages msgs;
    ImageResult r = CreateDiskImage(media, dir / "src.img", tc.ctx, msgs);
    EXPECT_TRUE(r.refused);
    ASSERT_EQ(msgs.shown.size(), 1u);
    EXPECT_EQ(msgs.shown[0].id, "IDS_IMAGE_ON_SOURCE");
    EXPECT_EQ(ReadAll(dir / "src.img"), data);
    // Another name beside it is fine, and the source stays as it was.
    r = CreateDiskImage(media, dir / "copy.img", tc.ctx, msgs);
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(ReadAll(dir / "copy.img"), data);
    EXPECT_EQ(ReadAll(dir / "src.img"), data);
}

} // namespace
} // namespace kestrin
