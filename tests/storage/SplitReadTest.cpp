// Long reads shared by two threads give what one ordinary read gives: the same bytes, the same
// failures, the same count of bytes past the source's end.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>

#include "storage/CPhysicalDisk.h"
#include "storage/SplitRead.h"

using namespace kestrin;

namespace {

constexpr uint32_t kSector = 512;

// Reads beside others as a plain file does, failing where told to (both ways of reading), and
// counts how each way was used.
class TwoWaySource final : public ByteSource {
public:
    TwoWaySource(size_t bytes, uint64_t failAt = UINT64_MAX, bool besideOnly = false)
        : m_failAt(failAt), m_besideOnly(besideOnly) {
        m_data.resize(bytes);
        for (size_t i = 0; i < bytes; ++i) m_data[i] = uint8_t(i * 7 + i / 4096);
    }
    long long ReadAt(void* buf, size_t len, uint64_t offset) override {
        ++plain;
        if (!m_besideOnly && Covers(offset, len)) return -1;
        return Copy(buf, len, offset);
    }
    long long ReadAtBeside(void* buf, size_t len, uint64_t offset) const override {
        ++beside;
        if (Covers(offset, len)) return -1;
        return Copy(buf, len, offset);
    }
    uint64_t Size() const override { return m_data.size(); }
    uint32_t LastError() const override { return 23; }
    const std::vector<uint8_t>& Data() const { return m_data; }
    std::atomic<int> plain{0};
    mutable std::atomic<int> beside{0};

private:
    bool Covers(uint64_t offset, size_t len) const { return m_failAt >= offset && m_failAt < offset + len; }
    long long Copy(void* buf, size_t len, uint64_t offset) const {
        if (offset >= m_data.size()) return 0;
        size_t n = std::min<size_t>(len, m_data.size() - size_t(offset));
        std::memcpy(buf, m_data.data() + offset, n);
        return (long long)n;
    }
    std::vector<uint8_t> m_data;
    uint64_t m_failAt;
    bool m_besideOnly;
};

TwoWaySource* Attach(CPhysicalDisk& disk, std::unique_ptr<TwoWaySource> source) {
    TwoWaySource* s = source.get();
    uint64_t size = source->Size();
    disk.Attach(std::move(source));
    disk.SetSectorSize(kSector);
    disk.SetSectorCount(size / kSector);
    return s;
}

} // namespace

TEST(SplitRead, HalvesOnTwoThreadsGiveWhatOneReadGives) {
    const size_t image = 6u << 20;
    // A long read well inside the source: two reads beside, none through the media.
    {
        CPhysicalDisk disk;
        TwoWaySource* src = Attach(disk, std::make_unique<TwoWaySource>(image));
        CSplitReader split(disk);
        std::vector<uint8_t> buf((3u << 20) + 4096, 0xEE);
        ASSERT_TRUE(split.Read(buf.data(), uint32_t(buf.size()), 8));
        EXPECT_TRUE(std::equal(buf.begin(), buf.end(), src->Data().begin() + 8 * kSector));
        EXPECT_EQ(src->beside.load(), 2);
        EXPECT_EQ(src->plain.load(), 0);
        // A short one goes in one piece.
        ASSERT_TRUE(split.Read(buf.data(), 64 * 1024, 16));
        EXPECT_EQ(src->plain.load(), 1);
        EXPECT_EQ(disk.BytesPastEnd(), 0u);
    }
    // Past the source's end, a half that fails beside but reads plainly, and a failure both
    // ways: each as the one ordinary read of the whole range gives it.
    struct Case {
        uint64_t failAt;
        bool besideOnly;
        uint64_t sector;
    };
    for (Case c : {Case{UINT64_MAX, false, (image - (1u << 20)) / kSector}, Case{5u << 20, true, 2048},
                   Case{5u << 20, false, 2048}}) {
        CPhysicalDisk split, plain;
        Attach(split, std::make_unique<TwoWaySource>(image, c.failAt, c.besideOnly));
        Attach(plain, std::make_unique<TwoWaySource>(image, c.failAt, c.besideOnly));
        CSplitReader reader(split);
        std::vector<uint8_t> got(4u << 20, 0xEE), want(4u << 20, 0xEE);
        bool ok = reader.Read(got.data(), uint32_t(got.size()), c.sector);
        bool wantOk = plain.ReadSectors(want.data(), uint32_t(want.size()), c.sector, true);
        EXPECT_EQ(ok, wantOk) << c.sector;
        if (wantOk) {
            EXPECT_EQ(got, want) << c.sector;
        }
        EXPECT_EQ(split.BytesPastEnd(), plain.BytesPastEnd()) << c.sector;
        EXPECT_EQ(split.ReadFailures(), plain.ReadFailures()) << c.sector;
    }
}
