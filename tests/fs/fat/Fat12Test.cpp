// FAT12: a floppy image and a small card with an MBR (scripts/fixtures/make-volume-case-fixtures),
// listed as `fls -r -p` lists them and read back as they were written; found again without the
// card's table, and after a quick format of the floppy; and the 12-bit FAT entries themselves.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <regex>
#include <set>
#include <tuple>

#include "TestImages.h"
#include "fs/fat/CFatVolume.h"
#include "fs/fat/FatEngine.h"
#include "fs/fat/VolumeCaseCheck.h"
#include "job/QuietScanEvents.h"
#include "recover/Recover.h"
#include "storage/BootSector.h"
#include "storage/ByteSource.h"
#include "storage/SourceLayout.h"
#include "util/Bytes.h"
#include "util/Text.h"

namespace kestrin::test {
namespace {

// Path -> (folder, deleted), as one listing gives it.
using Items = std::map<std::string, std::pair<bool, bool>>;
// The same, with the first character of every deleted name replaced by '_': a deletion
// overwrites it, and this engine shows "X" where fls shows "_" (names kept by a long name
// keep it on both sides, so they are normalised alike).
using Listing = std::set<std::tuple<std::string, bool, bool>>;

std::string Key(const std::string& path, const std::function<bool(const std::string&)>& deletedAt) {
    std::string out;
    for (size_t start = 0; start <= path.size();) {
        const size_t slash = std::min(path.find('/', start), path.size());
        std::string part = path.substr(start, slash - start);
        if (!part.empty() && deletedAt(path.substr(0, slash))) {
            size_t n = 1; // the whole first character, UTF-8 continuation bytes too
            while (n < part.size() && (uint8_t(part[n]) & 0xC0) == 0x80) ++n;
            std::string renamed(1, '_');
            part = renamed.append(part, n, std::string::npos);
        }
        if (!out.empty()) out += '/';
        out += part;
        start = slash + 1;
    }
    return out;
}

Listing Normalised(const Items& items) {
    Listing out;
    for (const auto& [path, state] : items)
        out.emplace(Key(path, [&](const std::string& p) { return items.at(p).second; }), state.first, state.second);
    return out;
}

// The files and folders of tests/images/NAME.fls.txt (fls's own entries and the label left out).
Items FlsItems(const std::string& name) {
    std::ifstream in(std::string(KESTRIN_SOURCE_DIR) + "/tests/images/" + name + ".fls.txt");
    static const std::regex line(R"(^(\S)/(\S) (\* )?\d+(\(realloc\))?:\t(.*)$)");
    Items out;
    std::smatch m;
    for (std::string s; std::getline(in, s);) {
        if (!std::regex_match(s, m, line) || m[1] == "v" || m[1] == "V") continue;
        if (s.find("(Volume Label Entry)") != std::string::npos) continue;
        out[m[5]] = {m[1] == "d", m[3].matched};
    }
    return out;
}

Items EngineItems(const CNode* root) {
    Items out;
    for (const auto& [path, n] : Flatten(root)) out[path] = {n->IsFolder(), n->IsDeleted()};
    return out;
}

// Manifest files whose content differs from what the engine reads back (or that it does not list
// where their path says), found through the normalised paths.
std::vector<std::string> ContentProblems(ScannedVolume& v, const nlohmann::json& manifest) {
    std::map<std::string, bool> deleted;
    for (const auto& item : manifest["files"]) deleted[item["path"]] = item["deleted"];
    std::map<std::string, std::string> shownByKey;
    const Items engine = EngineItems(v.root);
    for (const auto& [path, state] : engine)
        shownByKey[Key(path, [&](const std::string& p) { return engine.at(p).second; })] = path;
    return CaseProblems(v, manifest, FatWriteContent, [&](const nlohmann::json& item) {
        auto it = shownByKey.find(Key(item["path"], [&](const std::string& p) { return deleted.at(p); }));
        return it == shownByKey.end() ? item["path"].get<std::string>() : it->second;
    });
}

struct Harness {
    ScanOperation op;
    QuietScanEvents events;
    PauseGate gate;
    ScanContext ctx{op, events, gate};
    explicit Harness(CNode* top, RecoveryMode mode = RecoveryMode::Partition) {
        op.state = OperationState::Running;
        ctx.mode = mode;
        ctx.top = top;
    }
};

// Scans partition `record` of `v`'s media (already attached) the way the driver does.
void ScanRecord(ScannedVolume& v, const PartitionRecord& record, SourceKind kind) {
    v.media.SelectPartition(record, kind);
    Harness run(v.top.get());
    v.outcome = FatScanVolume(v.media, 1, run.ctx);
    v.root = FindVolumeRoot(v.top.get());
}

// The floppy is recognised as a FAT12 volume image; read from its boot sector alone it lists what
// fls lists and reads every intact file back.
TEST(Fat12Volume, FloppyListsAsFlsAndReadsBack) {
    nlohmann::json m;
    auto v = ScanCase("fat12-floppy", FsKind::Fat12, FatScanVolume, m);
    if (!v) GTEST_SKIP() << "fat12-floppy not available";
    ASSERT_TRUE(v->root);
    EXPECT_EQ(v->root->recordId, 1u); // the root region, as on FAT16
    const Listing fls = Normalised(FlsItems("fat12-floppy"));
    ASSERT_EQ(fls.size(), m["files"].size());
    EXPECT_EQ(Normalised(EngineItems(v->root)), fls);
    EXPECT_EQ(ContentProblems(*v, m), std::vector<std::string>());

    Layout layout;
    auto parts = ListPartitions(v->media, layout);
    EXPECT_EQ(layout, Layout::Volume);
    ASSERT_EQ(parts.size(), 1u);
    EXPECT_EQ(parts[0].fsKind, FsKind::Fat12);
    EXPECT_EQ(parts[0].partitionFlag, PartitionFlag::Validated);
    EXPECT_STREQ(FsKindName(parts[0].fsKind), "FAT12");
}

// The card's MBR slot of type 0x01 lists FAT12 with its geometry; the walk through it reads the
// chains whose entries lie across the FAT's sector edges. With the table gone, the search finds
// the same volume and it reads the same.
TEST(Fat12Volume, CardInMbrSlotAndFoundWithoutTable) {
    auto [path, m] = OpenFixture("fat12-card", false);
    if (path.empty()) GTEST_SKIP() << "fat12-card not available";
    const uint64_t start = m["start_sector"], sectors = m["sectors"];
    const Listing fls = Normalised(FlsItems("fat12-card"));
    ASSERT_EQ(fls.size(), m["files"].size());

    ScannedVolume fromTable;
    ASSERT_TRUE(fromTable.media.AttachImageFile(path));
    Layout layout;
    auto parts = ListPartitions(fromTable.media, layout);
    EXPECT_EQ(layout, Layout::Mbr);
    ASSERT_EQ(parts.size(), 1u);
    EXPECT_EQ(parts[0].fsKind, FsKind::Fat12);
    EXPECT_EQ(parts[0].partitionFlag, PartitionFlag::Validated);
    EXPECT_EQ(parts[0].startSector, start);
    EXPECT_EQ(parts[0].sectorsPerCluster, 8u);
    ScanRecord(fromTable, parts[0], SourceKind::ImagePartition);
    ASSERT_TRUE(fromTable.root);
    EXPECT_EQ(Normalised(EngineItems(fromTable.root)), fls);
    EXPECT_EQ(ContentProblems(fromTable, m), std::vector<std::string>());

    auto bytes = ReadWhole(path);
    std::memset(bytes.data(), 0, 512);
    ScannedVolume searched;
    searched.media.Attach(std::make_unique<MemorySource>(std::move(bytes)));
    searched.media.SetSectorSize(512);
    searched.media.SetSectorCount(m["size_bytes"].get<uint64_t>() / 512);
    searched.media.SetSourceKind(SourceKind::ImageFile);
    (void)ReadSourceLayout(searched.media);
    {
        Harness search(searched.top.get());
        SearchLostPartitions(searched.media, search.ctx);
    }
    auto found = searched.media.SecondPartitions();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_TRUE(found[0].found);
    EXPECT_EQ(found[0].fsKind, FsKind::Fat12);
    EXPECT_EQ(found[0].startSector, start);
    EXPECT_EQ(found[0].length, sectors);
    ScanRecord(searched, found[0], SourceKind::ImagePartition);
    ASSERT_TRUE(searched.root);
    EXPECT_EQ(Normalised(EngineItems(searched.root)), fls);
    EXPECT_EQ(ContentProblems(searched, m), std::vector<std::string>());
}

// A quick format of the floppy (new empty FATs and root region, data left as it was): the search
// for the previous file system finds the old folders by their "." and ".." and reads their files.
TEST(Fat12Volume, FloppyFoldersFoundAfterQuickFormat) {
    const std::string path = UnpackImage("fat12-floppy");
    if (path.empty()) GTEST_SKIP() << "fat12-floppy not available";
    auto bytes = ReadWhole(path);
    ASSERT_GE(bytes.size(), 512u);
    const uint8_t* boot = bytes.data();
    const uint32_t bps = Le16(boot + 11), reserved = Le16(boot + 14), fats = boot[16], fatSize = Le16(boot + 22);
    const uint32_t rootBytes = Le16(boot + 17) * 32u;
    const size_t fat = size_t(reserved) * bps, root = fat + size_t(fats) * fatSize * bps;
    ASSERT_LE(root + rootBytes, bytes.size());
    for (uint32_t i = 0; i < fats; ++i) std::memset(bytes.data() + fat + i * fatSize * bps + 3, 0, fatSize * bps - 3);
    std::memset(bytes.data() + root, 0, rootBytes);

    ScannedVolume v;
    const uint64_t count = bytes.size() / 512;
    v.media.Attach(std::make_unique<MemorySource>(std::move(bytes)));
    v.media.SetSectorSize(512);
    v.media.SetSectorCount(count);
    Layout layout;
    auto parts = ListPartitions(v.media, layout);
    ASSERT_EQ(parts.size(), 1u);
    v.media.SelectPartition(parts[0], SourceKind::Volume);
    Harness run(v.top.get(), RecoveryMode::Formatted);
    RecoverRecordSearch(v.media, 0, count, run.ctx);
    v.root = FindVolumeRoot(v.top.get());
    ASSERT_TRUE(v.root);
    // The root's entries are gone: "letters" comes back under its cluster number, its own
    // entries (and "old" inside it) by name.
    const CNode* letters = nullptr;
    for (const CNode* c = v.root->firstChild; c; c = c->nextSibling)
        if (c->IsFolder() && FindChild(c, u"old")) letters = c;
    ASSERT_NE(letters, nullptr);
    const CNode* draft = FindChild(FindChild(letters, u"old"), u"draft.txt");
    const CNode* dear = FindChild(letters, u"Dear friend.txt");
    ASSERT_TRUE(draft && dear);
    nlohmann::json m = OpenFixture("fat12-floppy", false).second;
    for (const auto& item : m["files"]) {
        if (item["path"] == "letters/Dear friend.txt") {
            EXPECT_EQ(Sha256Of(ReadContent(FatWriteContent, v.media, *dear)), item["sha256"]);
        } else if (item["path"] == "letters/old/draft.txt") {
            EXPECT_EQ(Sha256Of(ReadContent(FatWriteContent, v.media, *draft)), item["sha256"]);
        }
    }
}

// Two entries in three bytes, odd ones in the high 12 bits, read across the edges of the FAT's
// first sectors; chains end at the bad-cluster and end marks; no entry is read past the FAT's
// used bytes, whatever lies after them.
TEST(Fat12Entries, PackedEntriesChainsAndBounds) {
    constexpr uint32_t kHighest = 1001;
    const size_t fatAt = 512, dataAt = 4096;
    std::vector<uint8_t> img(dataAt + size_t(kHighest) * 512, 0);
    uint8_t* fat = img.data() + fatAt;
    auto put = [&](uint32_t n, uint32_t v) {
        uint8_t* p = fat + n * 3 / 2;
        if (n & 1) {
            p[0] = uint8_t((p[0] & 0x0F) | (v & 0x0F) << 4);
            p[1] = uint8_t(v >> 4);
        } else {
            p[0] = uint8_t(v);
            p[1] = uint8_t((p[1] & 0xF0) | (v >> 8 & 0x0F));
        }
    };
    const uint64_t fatBytes = FatBytesForEntries(FsKind::Fat12, kHighest + 1);
    ASSERT_EQ(fatBytes, 1503u);
    std::memset(fat + fatBytes, 0xFF, 64); // past the used bytes: must not be read as entries
    put(340, 341), put(341, 342), put(342, 0xFFF); // entry 341 takes FAT bytes 511 and 512
    put(681, 682), put(682, 683), put(683, 0xFF8); // entry 682 takes FAT bytes 1023 and 1024
    put(10, 11), put(11, 0xFF7);                    // a bad cluster ends the chain
    put(20, 0xFF6);                                 // past the highest cluster
    put(1000, 1001), put(1001, 0xABC);              // the last entry, odd
    CPhysicalDisk media;
    media.Attach(std::make_unique<MemorySource>(img));
    media.SetSectorSize(512);
    CFatVolume vol(media);
    FatGeometry g;
    g.fsKind = FsKind::Fat12;
    g.mediaSectorSize = 512;
    g.volumeEnd = img.size();
    g.fatStart = fatAt;
    g.fatBytes = fatBytes;
    g.rootRegion = 2048;
    g.dataStart = dataAt;
    g.clusterBytes = 512;
    g.highestCluster = kHighest;
    vol.SetGeometry(g);
    using Chain = std::vector<uint32_t>;
    EXPECT_EQ(vol.FollowChain(340, 100), (Chain{340, 341, 342}));
    EXPECT_EQ(vol.FollowChain(681, 100), (Chain{681, 682, 683}));
    EXPECT_EQ(vol.FollowChain(10, 100), (Chain{10, 11}));
    EXPECT_EQ(vol.FollowChain(20, 100), (Chain{20}));
    EXPECT_EQ(vol.Entry(1001), 0xABCu);
    EXPECT_EQ(vol.FollowChain(1000, 100), (Chain{1000, 1001}));
    EXPECT_EQ(vol.Entry(1002), 0u);
    EXPECT_EQ(vol.Entry(0xFFFFFFFF), 0u);
}

// The FAT width follows the cluster count: 4084 clusters is FAT12, 4085 is not (and the broad
// FAT16 recognition takes it, as before).
TEST(Fat12BootSector, ClusterCountDecides) {
    const std::string path = UnpackImage("fat12-floppy");
    if (path.empty()) GTEST_SKIP() << "fat12-floppy not available";
    auto bytes = ReadWhole(path);
    ASSERT_GE(bytes.size(), 512u);
    std::vector<uint8_t> boot(bytes.begin(), bytes.begin() + 512);
    CPhysicalDisk media;
    auto floppy = RecogniseVolume(media, boot, 2880);
    ASSERT_TRUE(floppy);
    EXPECT_EQ(floppy->fsKind, FsKind::Fat12);
    EXPECT_EQ(floppy->clusterCount, 2847u); // 2880 sectors less 1 reserved, 2 FATs of 9, 14 of root
    EXPECT_EQ(floppy->thirdArea, 19u);
    // FATs of 12 sectors hold 4096 entries; 1 + 24 + 14 sectors of metadata.
    PutLe16(boot.data() + 22, 12);
    PutLe16(boot.data() + 19, 39 + 4084);
    auto most = RecogniseVolume(media, boot, 0);
    ASSERT_TRUE(most);
    EXPECT_EQ(most->fsKind, FsKind::Fat12);
    EXPECT_EQ(most->clusterCount, 4084u);
    PutLe16(boot.data() + 19, 39 + 4085);
    EXPECT_FALSE(IsFat12BootSector(media, boot));
    auto over = RecogniseVolume(media, boot, 0);
    ASSERT_TRUE(over);
    EXPECT_EQ(over->fsKind, FsKind::Fat16);
}

} // namespace
} // namespace kestrin::test
