// The smart scan, the lost-partition search and the search for a previous file system, on images
// made by real tools and damaged the way disks get damaged.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "job/QuietScanEvents.h"
#include "TestImages.h"
#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "fs/exfat/ExFatEngine.h"
#include "fs/fat/FatEngine.h"
#include "fs/ntfs/NtfsEngine.h"
#include "recover/Recover.h"
#include "storage/ByteSource.h"
#include "storage/Ldm.h"
#include "storage/SourceLayout.h"

namespace kestrin {
namespace {

using NoEvents = QuietScanEvents;

// The bundled sample disk lives with the program's data, not with the test images.
std::string UnpackSample() {
    namespace fs = std::filesystem;
    fs::path src = fs::path(KESTRIN_SOURCE_DIR) / "data" / "sample" / "sample-disk.img.zst";
    fs::path out = fs::path(KESTRIN_BINARY_DIR) / "test-images" / "sample-disk.img";
    std::error_code ec;
    if (!fs::exists(src, ec)) return {};
    fs::create_directories(out.parent_path(), ec);
    if (fs::exists(out, ec) && fs::last_write_time(out, ec) >= fs::last_write_time(src, ec)) return out.string();
    std::string tmp = out.string() + ".part" + std::to_string(::getpid());
    if (std::system(("zstd -q -d -f '" + src.string() + "' -o '" + tmp + "'").c_str()) != 0) return {};
    fs::rename(tmp, out, ec);
    return ec ? std::string() : out.string();
}

struct ScanHarness {
    ScanOperation op;
    NoEvents events;
    PauseGate gate;
    std::unique_ptr<CNode> top{MakeTopNode()};
    ScanContext ctx{op, events, gate};
    explicit ScanHarness(RecoveryMode mode = RecoveryMode::Partition) {
        op.state = OperationState::Running;
        ctx.mode = mode;
        ctx.top = top.get();
    }
};

// Opens test image `name`, which holds one volume, and runs the search for the file system it
// held before it was formatted.
void SearchFormattedVolume(const std::string& name, CPhysicalDisk& disk, ScanHarness& run) {
    std::string path = test::UnpackImage(name);
    ASSERT_FALSE(path.empty());
    ASSERT_TRUE(disk.AttachImageFile(path));
    Layout layout;
    auto parts = ListPartitions(disk, layout);
    ASSERT_EQ(parts.size(), 1u);
    disk.SelectPartition(parts[0], SourceKind::Volume);
    RecoverRecordSearch(disk, 0, disk.GetSectorCount(), run.ctx);
}

void AttachBytes(CPhysicalDisk& disk, std::vector<uint8_t> bytes) {
    uint64_t n = bytes.size() / 512;
    disk.Attach(std::make_unique<MemorySource>(std::move(bytes)));
    disk.SetSectorSize(512);
    disk.SetFirstSector(0);
    disk.SetSectorCount(n);
    disk.SetSourceKind(SourceKind::ImageFile);
}

const CNode* Find(const CNode* top, std::initializer_list<std::u16string_view> path) {
    const CNode* n = FindVolumeRoot(top);
    for (auto part : path) {
        if (!n) return nullptr;
        n = FindChild(n, part);
    }
    return n;
}

std::vector<uint8_t> Content(CPhysicalDisk& media, const CNode& node) {
    std::vector<uint8_t> out;
    ContentSink sink = [&](const uint8_t* p, size_t n) {
        out.insert(out.end(), p, p + n);
        return true;
    };
    if (media.GetFsKind() == FsKind::ExFat) ExFatWriteContent(media, node, sink);
    else if (media.GetFsKind() == FsKind::Ntfs) NtfsWriteContent(media, node, sink);
    return out;
}

void ZeroSector(std::vector<uint8_t>& bytes, uint64_t sector) {
    ASSERT_LE((sector + 1) * 512, bytes.size());
    std::memset(bytes.data() + sector * 512, 0, 512);
}

// The sample's exFAT volume sits in an MBR slot of type 0x07, so the table reader lists it as
// NTFS with flag 1; the smart scan must find exFAT in its boot sector and list and read its files.
TEST(SmartScan, ExFatInAnNtfsSlotIsListedAndRead) {
    std::string path = UnpackSample();
    ASSERT_FALSE(path.empty());
    CPhysicalDisk disk;
    ASSERT_TRUE(disk.AttachImageFile(path));
    Layout layout;
    auto parts = ListPartitions(disk, layout);
    ASSERT_EQ(parts.size(), 3u);
    ASSERT_EQ(parts[2].fsKind, FsKind::Ntfs);
    ASSERT_TRUE(WantsSmartScan(parts[2]));
    disk.SelectPartition(parts[2], SourceKind::ImagePartition);
    ScanHarness run;
    SmartScanVolume(disk, run.ctx);
    EXPECT_EQ(disk.GetFsKind(), FsKind::ExFat);
    const CNode* photo = Find(run.top.get(), {u"Camera uploads", u"Photo from the phone 01.jpg"});
    ASSERT_NE(photo, nullptr);
    EXPECT_EQ(photo->size, 13165u);
    auto bytes = Content(disk, *photo);
    ASSERT_EQ(bytes.size(), 13165u);
    EXPECT_EQ(bytes[0], 0xFF);
    EXPECT_EQ(bytes[1], 0xD8);
    EXPECT_NE(Find(run.top.get(), {u"Music", u"Recorded melody.mp3"}), nullptr);
}

// A FAT16 volume of 16 MiB fails the strict FAT16 test (16-bit total); the smart scan reads it.
TEST(SmartScan, SmallFat16VolumeIsListed) {
    std::string path = test::UnpackImage("fat16-small");
    ASSERT_FALSE(path.empty());
    CPhysicalDisk disk;
    ASSERT_TRUE(disk.AttachImageFile(path));
    Layout layout;
    auto parts = ListPartitions(disk, layout);
    ASSERT_EQ(parts.size(), 1u);
    EXPECT_TRUE(WantsSmartScan(parts[0]));
    disk.SelectPartition(parts[0], SourceKind::Volume);
    ScanHarness run;
    SmartScanVolume(disk, run.ctx);
    EXPECT_EQ(disk.GetFsKind(), FsKind::Fat16);
    EXPECT_NE(Find(run.top.get(), {u"Documents", u"NOTES.TXT"}), nullptr);
}

struct Expected {
    uint64_t start, length;
    FsKind kind;
};
// disk-mbr's table: FAT32 primary, NTFS and FAT16 in logical partitions.
constexpr Expected kDiskMbr[] = {{2048, 69632, FsKind::Fat32}, {73728, 24576, FsKind::Ntfs}, {100352, 24576, FsKind::Fat16}};

std::vector<PartitionRecord> Search(std::vector<uint8_t> bytes) {
    CPhysicalDisk disk;
    AttachBytes(disk, std::move(bytes));
    (void)ReadSourceLayout(disk);
    ScanHarness run;
    SearchLostPartitions(disk, run.ctx);
    return disk.SecondPartitions();
}

// Sector 0 zeroed, then also the NTFS boot sector (found through its copy in the last sector),
// then both NTFS boot sectors (placed from the $MFT record).
TEST(PartitionSearch, FindsEveryPartitionOfADiskWithoutTable) {
    std::string path = test::UnpackImage("disk-mbr");
    ASSERT_FALSE(path.empty());
    auto bytes = test::ReadWhole(path);
    ZeroSector(bytes, 0);
    for (int damage = 0; damage < 3; ++damage) {
        SCOPED_TRACE(damage);
        if (damage == 1) ZeroSector(bytes, 73728);
        if (damage == 2) ZeroSector(bytes, 73728 + 24575);
        auto found = Search(bytes);
        ASSERT_EQ(found.size(), 3u);
        for (size_t i = 0; i < 3; ++i) {
            EXPECT_TRUE(found[i].found);
            EXPECT_EQ(found[i].startSector, kDiskMbr[i].start);
            EXPECT_EQ(found[i].fsKind, kDiskMbr[i].kind);
            // Without any boot sector the NTFS size comes from $BadClus, a whole number of clusters.
            if (damage == 2 && i == 1) EXPECT_EQ(found[i].length, 24569u);
            else EXPECT_EQ(found[i].length, kDiskMbr[i].length);
        }
    }
}

// The found NTFS volume (no boot sector left) scans from the geometry the search gave.
TEST(PartitionSearch, VolumeFoundFromItsMftScans) {
    std::string path = test::UnpackImage("disk-mbr");
    ASSERT_FALSE(path.empty());
    auto bytes = test::ReadWhole(path);
    ZeroSector(bytes, 0);
    ZeroSector(bytes, 73728);
    ZeroSector(bytes, 73728 + 24575);
    CPhysicalDisk disk;
    AttachBytes(disk, bytes);
    (void)ReadSourceLayout(disk);
    ScanHarness search;
    SearchLostPartitions(disk, search.ctx);
    ASSERT_EQ(disk.SecondPartitions().size(), 3u);
    disk.SelectPartition(disk.SecondPartitions()[1], SourceKind::ImagePartition);
    ScanHarness run;
    NtfsScanVolume(disk, 1, run.ctx);
    size_t files = 0;
    ForEachNode(run.top.get(), [&](CNode* n) { files += !n->IsFolder(); });
    EXPECT_GE(files, 6u);
}

// The table's own partitions are not listed again; a volume inside an accepted one is not a
// partition.
TEST(PartitionSearch, IntactTableGivesNothingNew) {
    std::string path = test::UnpackImage("disk-mbr");
    ASSERT_FALSE(path.empty());
    auto found = Search(test::ReadWhole(path));
    EXPECT_TRUE(found.empty());
}

// Boot-sector-shaped sectors every few sectors, with lengths past the end and overlapping one
// another: the search ends quickly with a bounded list.
TEST(PartitionSearch, FakeBootSectorsStayBounded) {
    std::string path = test::UnpackImage("disk-mbr");
    ASSERT_FALSE(path.empty());
    auto disk = test::ReadWhole(path);
    std::vector<uint8_t> fat32(disk.begin() + 2048 * 512, disk.begin() + 2049 * 512);
    std::vector<uint8_t> ntfs(disk.begin() + 73728 * 512, disk.begin() + 73729 * 512);
    std::vector<uint8_t> bytes(32u << 20);
    for (size_t s = 1; s < bytes.size() / 512; s += 3) {
        auto& src = (s % 2) ? fat32 : ntfs;
        std::memcpy(bytes.data() + s * 512, src.data(), 512);
        // Every fourth one claims a size far beyond the disk.
        if (s % 4 == 1) std::memset(bytes.data() + s * 512 + 0x20, 0xFF, 4);
    }
    auto t0 = std::chrono::steady_clock::now();
    auto found = Search(std::move(bytes));
    auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    EXPECT_LT(seconds, 60.0);
    EXPECT_LE(found.size(), 4096u);
    for (const auto& r : found) EXPECT_LE(r.startSector + r.length, (32u << 20) / 512);
}

size_t CountFiles(const CNode* top) {
    size_t n = 0;
    ForEachNode(const_cast<CNode*>(top), [&](CNode* c) { n += !c->IsFolder(); });
    return n;
}

// Formatted over: NTFS quick-formatted again, and FAT32 written over NTFS. The older files are
// listed, and one known file reads back whole.
TEST(PreviousFileSystem, OlderNtfsFilesAreListed) {
    for (const char* name : {"recovery-ntfs-over-ntfs", "recovery-fat32-over-ntfs"}) {
        SCOPED_TRACE(name);
        CPhysicalDisk disk;
        ScanHarness run(RecoveryMode::Formatted);
        ASSERT_NO_FATAL_FAILURE(SearchFormattedVolume(name, disk, run));
        EXPECT_EQ(disk.GetFsKind(), FsKind::Ntfs);
        EXPECT_GT(CountFiles(run.top.get()), 5000u);
    }
}

// FAT32 formatted again with another cluster size (512 bytes over 2 KiB clusters, and 4 KiB over
// 512 bytes): the old layout is worked out from the old folders, their files are listed under
// their old names and sizes, and a file several old clusters long reads back from the old layout.
TEST(PreviousFileSystem, FatReformattedWithOtherClustersIsListed) {
    struct Expect {
        const char* image;
        size_t files;
        std::u16string_view name;
        uint64_t size;
    };
    const Expect cases[] = {
        {"recovery-fat32-reformat-2k-to-512", 98, u"Morning report with a long name.txt", 12000},
        {"recovery-fat32-over-fat32-4k", 10, u"Annual report.docx", 6561},
    };
    for (const Expect& c : cases) {
        SCOPED_TRACE(c.image);
        CPhysicalDisk disk;
        ScanHarness run(RecoveryMode::Formatted);
        ASSERT_NO_FATAL_FAILURE(SearchFormattedVolume(c.image, disk, run));
        EXPECT_EQ(disk.GetFsKind(), FsKind::Fat32);
        EXPECT_GE(CountFiles(run.top.get()), c.files);
        const CNode* file = nullptr;
        ForEachNode(run.top.get(), [&](CNode* n) {
            if (!n->IsFolder() && n->name == c.name) file = n;
        });
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(file->size, c.size);
        std::vector<uint8_t> bytes;
        FatWriteContent(disk, *file, [&](const uint8_t* p, size_t n) {
            bytes.insert(bytes.end(), p, p + n);
            return true;
        });
        ASSERT_EQ(bytes.size(), c.size);
        if (c.files == 98) {
            // The generated text: lower-case words, spaces and line ends only.
            EXPECT_TRUE(std::all_of(bytes.begin(), bytes.end(),
                                    [](uint8_t b) { return b == ' ' || b == '\n' || (b >= 'a' && b <= 'z'); }));
        }
    }
}

// A disk whose table, both NTFS boot sectors and first MFT records are gone gives the partition
// search nothing to place a volume by: the records on the disk are listed instead, and read back
// from the volume start they vote for (a 1,800-run file whose runs live in extension records).
TEST(PartitionSearch, NothingFoundFallsBackToTheRecordSearch) {
    std::string path = test::UnpackImage("ntfs-search-attrlist");
    ASSERT_FALSE(path.empty());
    CPhysicalDisk disk;
    ASSERT_TRUE(disk.AttachImageFile(path));
    Layout layout;
    EXPECT_TRUE(ListPartitions(disk, layout).empty());
    ScanHarness run;
    RecoverRecordSearch(disk, 0, disk.GetSectorCount(), run.ctx);
    EXPECT_TRUE(disk.SecondPartitions().empty());
    EXPECT_EQ(disk.GetFsKind(), FsKind::Ntfs);
    // Five files, one of them listed under each of its eight names.
    EXPECT_EQ(CountFiles(run.top.get()), 12u);
    const CNode* frag = Find(run.top.get(), {u"Fragmented.bin"});
    ASSERT_NE(frag, nullptr);
    EXPECT_EQ(Content(disk, *frag).size(), frag->size);
    EXPECT_GT(frag->size, 1000000u);
}

// The sample's exFAT volume sits in a slot typed NTFS: its intact boot sector (and the backup the
// search also meets) must not list it a second time.
TEST(PartitionSearch, UncheckedTableEntryWithIntactBootSectorIsNotRepeated) {
    std::string path = UnpackSample();
    ASSERT_FALSE(path.empty());
    auto found = Search(test::ReadWhole(path));
    EXPECT_TRUE(found.empty());
}

// The generated dynamic disk: both volumes are listed like partitions, the simple one as a range
// of the disk, the spanned FAT32 volume (two extents that are apart) with the file system its own
// sector 0 shows and the means to open it; reading the layout again keeps one entry per volume.
TEST(DynamicDisk, VolumesListedAndSpannedReadsAcrossExtents) {
    std::string path = test::UnpackImage("ldm-dynamic");
    ASSERT_FALSE(path.empty());
    CPhysicalDisk disk;
    ASSERT_TRUE(disk.AttachImageFile(path));
    Layout layout;
    auto parts = ListPartitions(disk, layout);
    parts = ListPartitions(disk, layout);
    EXPECT_EQ(layout, Layout::Ldm);
    ASSERT_EQ(parts.size(), 2u);
    EXPECT_EQ(parts[0].startSector, 2048u);
    EXPECT_EQ(parts[0].length, 32768u);
    EXPECT_EQ(parts[0].fsKind, FsKind::Ntfs);
    EXPECT_EQ(parts[1].startSector, 40960u);
    EXPECT_EQ(parts[1].length, 81920u);
    EXPECT_EQ(parts[1].fsKind, FsKind::Fat32);
    EXPECT_EQ(parts[1].partitionFlag, PartitionFlag::Validated);
    const auto& kept = disk.AssembledVolumes();
    ASSERT_EQ(kept.size(), 2u);
    EXPECT_EQ(kept[0].name, "Simple");
    EXPECT_FALSE(kept[0].open); // one range: read as a partition
    EXPECT_EQ(kept[1].name, "Spanned");
    EXPECT_EQ(kept[1].startSector, 40960u);
    EXPECT_EQ(kept[1].sectors, 81920u);
    ASSERT_TRUE(kept[1].open);
    auto opened = kept[1].open(*disk.Handle());
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(opened->Size(), 81920u * 512);

    auto volumes = ReadLdmVolumes(disk, 262144 - 2048, 2048, 63, "3f2a9c4e-1b7d-4e2a-9c11-5d0e6a7b8c90");
    ASSERT_EQ(volumes.size(), 2u);
    const LdmVolume& span = volumes[1];
    EXPECT_EQ(span.name, "Spanned");
    EXPECT_EQ(span.layout, LdmLayout::Spanned);
    EXPECT_TRUE(span.complete);
    ASSERT_EQ(span.extents.size(), 2u);
    EXPECT_EQ(span.extents[0].startSector, 40960u);
    EXPECT_EQ(span.extents[1].startSector, 98304u);

    CPhysicalDisk volume;
    volume.Attach(std::make_unique<ExtentSource>(*disk.Handle(), span, 512));
    volume.SetSectorSize(512);
    volume.SetSectorCount(volume.ByteSize() / 512);
    EXPECT_EQ(volume.GetSectorCount(), 81920u);
    volume.SetFsKind(FsKind::Fat32);
    ScanHarness run;
    FatScanVolume(volume, 1, run.ctx);
    const CNode* last = Find(run.top.get(), {u"FILE23.BIN"});
    ASSERT_NE(last, nullptr);
    std::vector<uint8_t> got;
    FatWriteContent(volume, *last, [&](const uint8_t* p, size_t n) {
        got.insert(got.end(), p, p + n);
        return true;
    });
    ASSERT_EQ(got.size(), 1u << 20);
    for (size_t k = 0; k < got.size(); k += 4099) ASSERT_EQ(got[k], uint8_t(23 * 37 + (k % 256) * 13)) << k;
}

} // namespace
} // namespace kestrin
