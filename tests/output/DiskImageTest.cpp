#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

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

    // A partition range: only its sectors, counted from its start. The earlier copy is kept
    // unless replacing it was allowed; a clean copy then leaves no map either.
    media.SetFirstSector(200);
    media.SetSectorCount(50);
    r = CreateDiskImage(media, dir / "out.img", tc.ctx, msgs);
    EXPECT_TRUE(r.refused);
    EXPECT_EQ(ReadAll(dir / "out.img"), expect);
    msgs.shown.clear();
    r = CreateDiskImage(media, dir / "out.img", tc.ctx, msgs, true);
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

TEST(DiskImage, RangePastTheSourceEndIsMappedAndACancelLeavesNoFile) {
    ScratchDir dir("image-short");
    // A partition whose range runs 20 sectors past the end of a truncated image (the last
    // sector only half there): those sectors are bad, not zeros passing for data.
    auto data = Pattern(100 * 512 + 256);
    CPhysicalDisk media;
    media.Attach(std::make_unique<MemorySource>(data));
    media.SetSectorSize(512);
    media.SetFirstSector(40);
    media.SetSectorCount(80);
    TestContext tc;
    CapturedMessages msgs;
    ImageResult r = CreateDiskImage(media, dir / "part.img", tc.ctx, msgs);
    EXPECT_FALSE(r.refused);
    EXPECT_EQ(r.sectors, 80u);
    EXPECT_EQ(r.badSectors, 20u);
    std::string map;
    for (uint8_t c : ReadAll(r.mapPath)) map += char(c);
    EXPECT_NE(map.find("\n60 20\n"), std::string::npos) << map;
    auto out = ReadAll(dir / "part.img");
    ASSERT_EQ(out.size(), 80u * 512);
    EXPECT_TRUE(std::equal(out.begin(), out.begin() + 60 * 512, data.begin() + 40 * 512));
    EXPECT_TRUE(std::all_of(out.begin() + 60 * 512, out.end(), [](uint8_t b) { return b == 0; }));

    // A stop before the copy ends: no image under the name, no temporary beside it.
    tc.op.state = OperationState::Cancel;
    r = CreateDiskImage(media, dir / "stopped.img", tc.ctx, msgs);
    EXPECT_TRUE(r.cancelled);
    EXPECT_FALSE(r.ok);
    size_t files = 0;
    for (auto& e : std::filesystem::directory_iterator(dir.path)) files += e.path().filename().string().find("stopped") != std::string::npos;
    EXPECT_EQ(files, 0u);
}

} // namespace
} // namespace kestrin
