// The loop's read-ahead window: what scanners see through it is what their own reads would give,
// and the compound-document and JPEG scanners find the same files with it as without it, while
// reading every byte once.
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <mutex>
#include <random>
#include <thread>

#include "CarveTestUtil.h"
#include "carve/CChunkPrefetcher.h"
#include "carve/CSectorReader.h"
#include "carve/scanners/CDOCScanner.h"
#include "carve/scanners/CPPTScanner.h"
#include "carve/scanners/CXLSScanner.h"
#include "util/Bytes.h"

namespace kestrin::test {
namespace {

constexpr uint32_t kSector = 512;

std::vector<uint8_t> Pattern(size_t bytes, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(bytes);
    for (auto& b : v) b = uint8_t(rng());
    return v;
}

std::vector<uint8_t> Bytes(std::span<const uint8_t> s) { return {s.begin(), s.end()}; }

// Walks all chunks, looking into the window at random places between them, and compares every
// view with the scanner's own read of the same sectors.
void CheckWindow(bool threaded) {
    // 50.5 sectors: the last one is half past the source's end.
    auto image = Pattern(50 * kSector + kSector / 2, 3);
    // Reads of sectors 30..33 fail: chunk 3 (sectors 27..34) is lost, a view into it is refused.
    CPhysicalDisk disk, same; // the reference reads go to a media of their own
    for (CPhysicalDisk* d : {&disk, &same}) {
        AttachMemory(*d, std::make_unique<FailingSource>(image, 30 * kSector, 34 * kSector, 23));
        d->SetSectorCount(51);
    }
    CSectorReader direct(same);
    CSectorReader reader(disk);
    const uint64_t first = 3, end = 51;
    CChunkPrefetcher chunks(reader, first, end, 8, threaded, 28);
    reader.SetWindow(&chunks);

    std::mt19937 rng(threaded ? 1 : 2);
    std::vector<uint8_t> scratch, expected;
    uint64_t viewed = 0, refused = 0;
    for (uint64_t c = 0; c < 6; ++c) {
        auto chunk = chunks.Next();
        const uint64_t start = first + c * 8;
        ASSERT_EQ(chunk.sectors, std::min<uint64_t>(8, end - start));
        ASSERT_EQ(chunk.ok, c != 3);
        if (chunk.ok) {
            std::vector<uint8_t> want(size_t(chunk.sectors) * kSector, 0);
            size_t have = std::min(want.size(), image.size() - size_t(start) * kSector);
            std::copy_n(image.begin() + ptrdiff_t(start * kSector), have, want.begin());
            ASSERT_EQ(std::vector<uint8_t>(chunk.data, chunk.data + want.size()), want) << "chunk " << c;
        }
        for (int k = 0; k < 40; ++k) {
            uint64_t sector = start + rng() % 30;
            uint32_t count = 1 + rng() % 14;
            auto view = chunks.View(sector, count, scratch);
            // Refused: past `end`, beyond the four chunks that 28 sectors past the scanned chunk
            // can reach, or touching the failed chunk; whatever is taken must be exact.
            bool reachable = sector + count <= end && (sector + count - 1 - first) / 8 <= c + 4;
            bool failed = c <= 3 && sector < 35 && sector + count > 27;
            EXPECT_EQ(view.empty(), !reachable || failed) << sector << "+" << count << " at chunk " << c;
            if (view.empty()) {
                ++refused;
                continue;
            }
            ++viewed;
            auto ref = direct.ReadView(sector, count, expected);
            ASSERT_EQ(Bytes(view), Bytes(ref)) << sector << "+" << count;
            // A view that may be cut: the sectors from `sector` on, at least `atLeast` of them.
            uint32_t atLeast = 1 + rng() % count;
            auto cut = chunks.View(sector, count, scratch, atLeast);
            ASSERT_GE(cut.size(), size_t(atLeast) * kSector);
            ASSERT_LE(cut.size(), size_t(count) * kSector);
            ASSERT_EQ(Bytes(cut), Bytes(ref.first(cut.size()))) << sector << "+" << count << " at least " << atLeast;
        }
        // Behind the chunk being scanned: gone.
        if (c > 0) {
            EXPECT_TRUE(chunks.View(start - 1, 1, scratch).empty());
        }
    }
    EXPECT_TRUE(chunks.Next().data == nullptr);
    EXPECT_GT(viewed, 60u);
    EXPECT_GT(refused, 20u);

    // Through the reader a refused view becomes the scanner's own read, failure included.
    EXPECT_TRUE(reader.ReadView(29, 2, scratch).empty());
    EXPECT_EQ(reader.LastError(), 23u);
    EXPECT_EQ(Bytes(reader.ReadView(40, 2, scratch)), Bytes(direct.ReadView(40, 2, expected)));
}

TEST(ReadAhead, WindowGivesWhatTheScannersOwnReadsGive) {
    CheckWindow(true);
    CheckWindow(false);
}

// A source the reading thread finds slow: its reads beside the loop take a while unless they are
// made on the loop's own thread, so the loop gets to chunks still being read and must read the
// next ones itself. Which thread read what is recorded; one chunk's read beside fails and one
// comes up short, both read again through ReadAt.
class SlowBesideSource final : public ByteSource {
public:
    SlowBesideSource(std::vector<uint8_t> data, uint64_t failAt) : m_source(std::move(data)), m_failAt(failAt) {}
    long long ReadAt(void* buf, size_t len, uint64_t offset) override {
        std::lock_guard lk(m_mutex);
        ++plainReads[offset];
        return m_source.ReadAt(buf, len, offset);
    }
    long long ReadAtBeside(void* buf, size_t len, uint64_t offset) const override {
        const bool loop = std::this_thread::get_id() == loopThread;
        if (!loop) std::this_thread::sleep_for(std::chrono::milliseconds(3));
        {
            std::lock_guard lk(m_mutex);
            ++(loop ? byLoop : byReader)[offset];
        }
        if (offset == m_failAt) return -1;
        return const_cast<MemorySource&>(m_source).ReadAt(buf, len, offset);
    }
    uint64_t Size() const override { return m_source.Size(); }
    std::thread::id loopThread = std::this_thread::get_id();
    mutable std::map<uint64_t, int> byLoop, byReader;
    std::map<uint64_t, int> plainReads;

private:
    MemorySource m_source;
    uint64_t m_failAt;
    mutable std::mutex m_mutex;
};

TEST(ReadAhead, LoopReadsAheadItselfRatherThanWait) {
    constexpr uint32_t kChunk = 8;
    // 30 chunks, the last one 4.5 sectors long (short at the source's end).
    auto image = Pattern((29 * kChunk + 4) * kSector + kSector / 2, 7);
    auto owned = std::make_unique<SlowBesideSource>(image, 12 * kChunk * kSector);
    SlowBesideSource* source = owned.get();
    CPhysicalDisk disk;
    AttachMemory(disk, std::move(owned));
    disk.SetSectorCount(29 * kChunk + 5);
    CSectorReader reader(disk);
    const uint64_t end = 29 * kChunk + 5;
    CChunkPrefetcher chunks(reader, 0, end, kChunk, true, 3 * kChunk);
    for (uint64_t c = 0; c < 30; ++c) {
        auto chunk = chunks.Next();
        ASSERT_TRUE(chunk.ok) << c;
        ASSERT_EQ(chunk.sectors, c < 29 ? kChunk : 5u);
        std::vector<uint8_t> want(size_t(chunk.sectors) * kSector, 0);
        size_t have = std::min(want.size(), image.size() - size_t(c * kChunk * kSector));
        std::copy_n(image.begin() + ptrdiff_t(c * kChunk * kSector), have, want.begin());
        ASSERT_EQ(std::vector<uint8_t>(chunk.data, chunk.data + want.size()), want) << "chunk " << c;
    }
    EXPECT_TRUE(chunks.Next().data == nullptr);
    // Every chunk read beside exactly once, by one thread or the other; both took part.
    for (uint64_t c = 0; c < 30; ++c) {
        uint64_t at = c * kChunk * kSector;
        EXPECT_EQ(source->byLoop[at] + source->byReader[at], 1) << "chunk " << c;
    }
    EXPECT_GT(source->byLoop.size(), 5u);
    EXPECT_GT(source->byReader.size(), 0u);
    // The failed and the short read were read again, once each, the way a scanner reads.
    EXPECT_EQ(source->plainReads, (std::map<uint64_t, int>{{12 * kChunk * kSector, 1}, {29 * kChunk * kSector, 1}}));
    EXPECT_EQ(disk.BytesPastEnd(), kSector / 2);
}

// Counts the source's reads by length.
class CountingSource final : public ByteSource {
public:
    explicit CountingSource(std::vector<uint8_t> data) : m_source(std::move(data)) {}
    long long ReadAt(void* buf, size_t len, uint64_t offset) override {
        std::lock_guard lk(m_mutex);
        ++reads[len];
        return m_source.ReadAt(buf, len, offset);
    }
    uint64_t Size() const override { return m_source.Size(); }
    uint32_t LastError() const override { return m_source.LastError(); }
    std::map<size_t, int> reads;

private:
    MemorySource m_source;
    std::mutex m_mutex;
};

// A shipped compound-document row: type 235 picks the class by extension.
SignatureRecord Compound(std::string ext) {
    SignatureRecord r;
    r.typeId = 235;
    r.extension = std::move(ext);
    r.header = {0xD0, 0xCF};
    r.category = 4;
    return r;
}

std::vector<uint8_t> DocHeaderSector() {
    auto doc = ReadDataFile("libreoffice.doc");
    doc.resize(kSector);
    return doc;
}

// The name and its terminator only: what follows it is left as it was.
void PutName(std::vector<uint8_t>& image, uint64_t at, std::u16string_view name) {
    for (size_t i = 0; i < name.size(); ++i) PutLe16(image.data() + at + 2 * i, name[i]);
    PutLe16(image.data() + at + 2 * name.size(), 0);
}

bool NameIs(const uint8_t* entry, std::u16string_view name) {
    size_t n = 0;
    while (n < 32 && Le16(entry + 2 * n) != 0) ++n;
    if (n != name.size()) return false;
    for (size_t i = 0; i < n; ++i)
        if (Le16(entry + 2 * i) != name[i]) return false;
    return true;
}

// The directory check written out plainly: from the hit, 63 sectors per read, at most 20 MiB,
// stopped by the next compound header; a sector opening with the stream's entry, or with a root
// entry followed within four sectors by it (or with fewer than four sectors left in the read).
bool ReferenceWalk(const std::vector<uint8_t>& image, uint64_t hit, std::u16string_view stream) {
    const uint64_t sectors = image.size() / kSector, maxSectors = 0x1400000 / kSector;
    for (uint64_t walked = 0; walked < maxSectors && hit + walked < sectors; walked += 63) {
        uint64_t n = std::min<uint64_t>(63, sectors - hit - walked);
        for (uint64_t i = 0; i < n && walked + i < maxSectors; ++i) {
            const uint8_t* s = image.data() + (hit + walked + i) * kSector;
            if (walked + i > 0 && std::equal(s, s + 8, image.data() + hit * kSector)) return false;
            if (NameIs(s, stream)) return true;
            if (!NameIs(s, u"Root Entry")) continue;
            if (n - i < 4) return true;
            for (const uint8_t* e = s + 128; e + 128 <= s + 4 * kSector; e += 128)
                if (NameIs(e, stream)) return true;
        }
    }
    return false;
}

// Random layouts of compound headers and directory names (around chunk and read boundaries, with
// root entries near their streams or not): the three scanners asked alone with their own reads
// accept what the plain rules accept, the loop carves exactly what they give, and it reads the
// source only in chunks (plus the one allocation-table sector per hit).
TEST(ReadAhead, CompoundDirectoryWalkFindsTheSameFromTheWindow) {
    const auto header = DocHeaderSector();
    const std::u16string_view names[] = {u"WordDocument", u"Workbook", u"PowerPoint Document", u"Root Entry"};
    const SignatureRecord rows[] = {Compound(".doc"), Compound(".xls"), Compound(".ppt")};
    for (uint32_t seed = 1; seed <= 6; ++seed) {
        std::mt19937 rng(seed);
        const uint64_t sectors = 3000 + rng() % 2000;
        auto image = Pattern(sectors * kSector, seed);
        for (int i = 0; i < 12; ++i) Put(image, (rng() % sectors) * kSector, header);
        for (int i = 0; i < 30; ++i) PutName(image, (rng() % sectors) * kSector, names[rng() % 4]);
        // Streams named inside the sectors after a root entry, where only the look-ahead sees them.
        for (int i = 0; i < 20; ++i) {
            uint64_t at = (rng() % (sectors - 8)) * kSector;
            PutName(image, at, names[3]);
            PutName(image, at + 128 * (1 + rng() % 18), names[rng() % 3]);
        }

        std::vector<std::string> expected, reference;
        for (uint64_t s = 0; s < sectors; ++s) {
            if (!std::equal(header.begin(), header.begin() + 8, image.begin() + ptrdiff_t(s * kSector))) continue;
            for (int k = 0; k < 3; ++k)
                if (ReferenceWalk(image, s, names[k])) {
                    reference.push_back(rows[k].extension.substr(1) + "@" + std::to_string(s));
                    break;
                }
        }
        {
            CPhysicalDisk disk;
            AttachMemory(disk, std::make_unique<MemorySource>(image));
            CSectorReader reader(disk);
            CDOCScanner doc;
            CXLSScanner xls;
            CPPTScanner ppt;
            CScanner* scanners[] = {&doc, &xls, &ppt};
            std::map<std::string, int> counts;
            for (uint64_t s = 0; s < sectors; ++s) {
                std::span<const uint8_t> sec(image.data() + s * kSector, kSector);
                for (int k = 0; k < 3; ++k) {
                    scanners[k]->SetSignature(rows[k]);
                    scanners[k]->SetReader(&reader);
                    if (!scanners[k]->IsHeader(sec) || scanners[k]->Verify(s, sec) != 1) continue;
                    uint64_t size = scanners[k]->FindFileSize(s, sec);
                    if (size == 0) continue;
                    std::string ext = rows[k].extension.substr(1);
                    ASSERT_LT(reference.size(), 100u);
                    EXPECT_EQ(ext + "@" + std::to_string(s),
                              expected.size() < reference.size() ? reference[expected.size()] : "-")
                        << "seed " << seed;
                    expected.push_back(ext + "/" + std::to_string(++counts[ext]) + "@" + std::to_string(s) + ":" +
                                       std::to_string(size));
                    break;
                }
            }
        }

        ScanRun run;
        auto source = std::make_unique<CountingSource>(image);
        CountingSource* counter = source.get();
        AttachMemory(run.disk, std::move(source));
        run.rows.assign(std::begin(rows), std::end(rows));
        run.Run();
        std::vector<std::string> found;
        ForEachNode(run.top.get(), [&](CNode* n) {
            if (n->IsFolder()) return;
            std::string name = ToUtf8(n->name); // file#N.ext
            std::string ext = name.substr(name.rfind('.') + 1);
            found.push_back(ext + "/" + name.substr(5, name.rfind('.') - 5) + "@" + std::to_string(n->location) + ":" +
                            std::to_string(n->size));
        });
        EXPECT_EQ(expected.size(), reference.size()) << "seed " << seed;
        EXPECT_GT(expected.size(), 3u);
        std::sort(found.begin(), found.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(found, expected) << "seed " << seed;
        for (auto [len, n] : counter->reads)
            EXPECT_TRUE(len == kSector || len % (kSignatureChunkSectors * kSector) == 0 ||
                        len == sectors % kSignatureChunkSectors * kSector)
                << n << " reads of " << len << " bytes, seed " << seed;
    }
}

// The walk's 20 MiB reach counted from a hit in the middle of a chunk, through the loop.
TEST(ReadAhead, DirectoryReachIsTheSameThroughTheLoop) {
    const uint64_t limit = 0x1400000 / kSector;
    const uint64_t hit = 300;
    for (uint64_t at : {hit + limit - 1, hit + limit}) {
        std::vector<uint8_t> image((hit + limit + 100) * kSector, 0x41);
        Put(image, hit * kSector, DocHeaderSector());
        PutName(image, at * kSector, u"WordDocument");
        ScanRun run;
        AttachMemory(run.disk, std::make_unique<MemorySource>(std::move(image)));
        run.rows = {Compound(".doc")};
        run.Run();
        EXPECT_EQ(run.Files().size(), at < hit + limit ? 1u : 0u) << at - hit;
    }
}

} // namespace
} // namespace kestrin::test
