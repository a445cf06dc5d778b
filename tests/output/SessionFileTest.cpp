#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>

#include <cstring>
#include <filesystem>

#include "OutputTestUtil.h"
#include "output/SessionFile.h"
#include "job/ScanOperation.h"
#include "storage/ByteSource.h"
#include "util/Bytes.h"
#include "util/Text.h"
#include "session/Texts.h"

namespace kestrin {
namespace {

using test::CapturedMessages;
using test::ReadAll;
using test::ScratchDir;

CNode* Add(CNode* parent, std::u16string name, uint16_t flags, uint32_t recordId) {
    auto* n = new CNode;
    n->name = std::move(name);
    n->nameLength = uint8_t(n->name.size());
    n->flags = flags;
    n->recordId = recordId;
    n->parentRecordId = parent->recordId;
    parent->AppendChild(n);
    return n;
}

// "." with Lost, docs (a.txt, b.txt) and c.bin; then a grouping tree with a carved file.
std::unique_ptr<CNode> SampleTree() {
    std::unique_ptr<CNode> top(new CNode);
    top->name = u"_R";
    top->nameLength = 2;
    top->flags = 3;
    CNode* vol = Add(top.get(), u".", 3, 5);
    vol->parentRecordId = 5;
    Add(vol, u"Lost", 2, 0);
    CNode* docs = Add(vol, u"docs", 3, 40);
    CNode* a = Add(docs, u"a.txt", 1, 41);
    a->size = 1234;
    a->location = 0x123456789ull;
    a->createdDate = 0x5A21;
    a->modifiedDate = 0x5A42;
    a->checked = 1;
    CNode* b = Add(docs, u"b\u00e9.txt", 0, 42);
    b->inDeletedView = 1;
    b->size = 7;
    Add(vol, u"c.bin", 1, 43)->size = 1;
    CNode* group = AddFolder(top.get(), u"File Types"); // prepended: written first
    CNode* jpg = AddFolder(group, u"jpg");
    CNode* carved = AddCarvedFile(jpg, u"f1.jpg", 99, 4096, 12);
    carved->checked = 0;
    return top;
}

void ExpectSameTree(const CNode* a, const CNode* b, const std::string& where = "") {
    const CNode* x = a->firstChild;
    const CNode* y = b->firstChild;
    for (; x && y; x = x->nextSibling, y = y->nextSibling) {
        std::string at = where + "/" + ToUtf8(x->name);
        EXPECT_EQ(x->name, y->name) << at;
        EXPECT_EQ(x->nameLength, y->nameLength) << at;
        EXPECT_EQ(x->size, y->size) << at;
        EXPECT_EQ(x->location, y->location) << at;
        EXPECT_EQ(x->recordId, y->recordId) << at;
        EXPECT_EQ(x->parentRecordId, y->parentRecordId) << at;
        EXPECT_EQ(x->createdDate, y->createdDate) << at;
        EXPECT_EQ(x->modifiedDate, y->modifiedDate) << at;
        EXPECT_EQ(x->flags, y->flags) << at;
        EXPECT_EQ(x->checked, y->checked) << at;
        EXPECT_EQ(x->carved, y->carved) << at;
        EXPECT_EQ(x->startOffset, y->startOffset) << at;
        EXPECT_EQ(x->inDeletedView, y->inDeletedView) << at;
        EXPECT_EQ(y->parent, b) << at;
        ExpectSameTree(x, y, at);
    }
    EXPECT_EQ(x, nullptr) << where << ": extra node in the original";
    EXPECT_EQ(y, nullptr) << where << ": extra node read back";
}

// Names of the node records in file order, read straight from the bytes.
std::vector<std::string> RecordNames(const std::vector<uint8_t>& file, size_t at, size_t count) {
    std::vector<std::string> names;
    for (size_t i = 0; i < count; ++i) {
        uint8_t len = file.at(at + 72);
        std::u16string n;
        for (size_t k = 0; k < len; ++k) n.push_back(char16_t(Le16(&file.at(at + 78 + 2 * k))));
        names.push_back(ToUtf8(n.substr(0, n.find(u'\0'))));
        at += 78 + 2 * len;
    }
    return names;
}

struct SessionFixture : ::testing::Test {
    ScratchDir dir{"session"};
    std::string image = dir / "disk.img";
    CPhysicalDisk media;
    void SetUp() override {
        test::WriteAll(image, std::vector<uint8_t>(64 * 512, 0xAB));
        ASSERT_TRUE(media.AttachImageFile(image));
        PartitionRecord p;
        p.startSector = 8;
        p.length = 40;
        p.volumeSerial = 0x1122334455667788ull;
        p.secondArea = 4;
        p.mftRecordSize = 1024;
        p.bytesPerCluster = 4096;
        p.sectorsPerCluster = 8;
        p.fsKind = FsKind::Ntfs;
        p.partitionFlag = PartitionFlag::Validated;
        media.SelectPartition(p, SourceKind::ImagePartition);
    }
};

TEST_F(SessionFixture, RoundTripGivesTheSameTreeSourceAndLists) {
    auto tree = SampleTree();
    auto rows = DriveListFromPartitions({PartitionRecord{}, media.GetPartitionParams()}, true, SourceKind::ImagePartition);
    std::vector<DriveListItem> second(1);
    second[0].SetKind(SourceKind::Volume);
    CapturedMessages msgs;
    std::string path = dir / "s.tks4";
    ASSERT_EQ(WriteSession(path, {RecoveryMode::LostFiles, &media, tree.get(), &rows, &second}, msgs), 1);

    SessionData back;
    ASSERT_TRUE(ReadSession(path, {}, back, msgs));
    EXPECT_TRUE(msgs.shown.empty());
    EXPECT_EQ(back.mode, RecoveryMode::LostFiles);
    ExpectSameTree(tree.get(), back.top.get());
    ASSERT_TRUE(back.media);
    EXPECT_TRUE(back.media->IsOpen());
    EXPECT_EQ(back.media->GetFirstSector(), 8u);
    EXPECT_EQ(back.media->GetSectorCount(), 40u);
    EXPECT_EQ(back.media->GetSectorSize(), 512u);
    EXPECT_EQ(back.media->GetFsKind(), FsKind::Ntfs);
    EXPECT_EQ(back.media->GetSourceKind(), SourceKind::ImagePartition);
    EXPECT_EQ(back.media->GetPartitionParams().volumeSerial, 0x1122334455667788ull);
    EXPECT_EQ(back.media->GetPartitionParams().mftRecordSize, 1024);
    ASSERT_TRUE(back.driveList && back.secondList);
    ASSERT_EQ(back.driveList->size(), 1u);
    EXPECT_EQ((*back.driveList)[0].raw, rows[0].raw);
    ASSERT_TRUE((*back.driveList)[0].partition);
    EXPECT_EQ((*back.driveList)[0].partition->startSector, 8u);
    EXPECT_FALSE((*back.secondList)[0].partition);
    ASSERT_EQ(back.media->Partitions().size(), 2u); // placeholder head + the stored one
    // The re-opened source reads the image again.
    uint8_t sector[512];
    ASSERT_TRUE(back.media->ReadSectors(sector, 512, 3, true));
    EXPECT_EQ(sector[0], 0xAB);
}

TEST_F(SessionFixture, LayoutIsByteExact) {
    auto tree = SampleTree();
    std::string path = dir / "s.tks4";
    CapturedMessages msgs;
    ASSERT_EQ(WriteSession(path, {RecoveryMode::DeletedFiles, &media, tree.get(), nullptr, nullptr}, msgs), 1);
    auto f = ReadAll(path);
    ASSERT_GE(f.size(), 20u);
    EXPECT_EQ(std::memcmp(f.data(), "KST3", 4), 0);
    EXPECT_EQ(Le32(&f[4]), 1019u);
    EXPECT_EQ(Le32(&f[8]), 1u);
    EXPECT_EQ(Le32(&f[12]), 0u);
    EXPECT_EQ(Le32(&f[16]), 0u);
    std::string abs = std::filesystem::absolute(image).string();
    uint32_t len = Le32(&f[20]);
    ASSERT_EQ(len, abs.size());
    size_t at = 24 + 2 * (len + 1);
    EXPECT_EQ(Le16(&f[at - 2]), 0); // terminator
    EXPECT_EQ(Le64(&f[at]), 40u);
    EXPECT_EQ(Le32(&f[at + 8]), 512u);
    const uint8_t* block = &f[at + 12];
    EXPECT_EQ(FsKind(block[0]), FsKind::Ntfs);
    EXPECT_EQ(PartitionFlag(block[1]), PartitionFlag::Validated);
    EXPECT_EQ(Le64(block + 10), 8u);
    size_t nodes = at + 12 + 102;
    // A folder's children come after all of its siblings.
    EXPECT_EQ(RecordNames(f, nodes, 9),
              (std::vector<std::string>{"File Types", ".", "jpg", "f1.jpg", "Lost", "docs", "c.bin", "a.txt", "b\xc3\xa9.txt"}));
    // Grouping folders keep 23 name units whatever their name; the record ends after 46 bytes.
    EXPECT_EQ(f[nodes + 72], 23);
    EXPECT_EQ(Le64(&f[nodes + 32]), 1u); // "." follows
    EXPECT_EQ(Le64(&f[nodes + 40]), 1u); // children follow later
    size_t second = nodes + 78 + 46;
    EXPECT_EQ(Le64(&f[second + 32]), 0u);
    EXPECT_EQ(f.size(), nodes + 9 * 78 + 2 * (23 + 1 + 23 + 6 + 4 + 4 + 5 + 5 + 6));
}

TEST(SessionFile, WithoutSourceHoldsHeaderAndLists) {
    ScratchDir dir("session-nosource");
    CapturedMessages msgs;
    std::string path = dir / "s.tks4";
    ASSERT_EQ(WriteSession(path, {RecoveryMode::LostPhotos, nullptr, nullptr, nullptr, nullptr}, msgs), 1);
    EXPECT_EQ(ReadAll(path).size(), 20u);
    std::vector<DriveListItem> rows(2);
    rows[0].SetKind(SourceKind::PhysicalDisk);
    rows[1].SetKind(SourceKind::ImageFile); // not stored
    // An existing file is replaced only when the caller says so; refused, it stays as it was.
    EXPECT_EQ(WriteSession(path, {RecoveryMode::LostPhotos, nullptr, nullptr, &rows, nullptr}, msgs), 0);
    EXPECT_EQ(ReadAll(path).size(), 20u);
    ASSERT_EQ(WriteSession(path, {RecoveryMode::LostPhotos, nullptr, nullptr, &rows, nullptr}, msgs, true), 1);
    auto f = ReadAll(path);
    ASSERT_EQ(f.size(), 20u + 6 + 272 + 80);
    EXPECT_EQ(Le16(&f[20]), 1);
    SessionData back;
    ASSERT_TRUE(ReadSession(path, {}, back, msgs));
    EXPECT_FALSE(back.media);
    EXPECT_EQ(back.top->firstChild, nullptr);
    ASSERT_TRUE(back.driveList);
    EXPECT_EQ(back.driveList->size(), 1u);
}

TEST_F(SessionFixture, EmptyTreeAndDeepChainsRoundTrip) {
    CapturedMessages msgs;
    std::string path = dir / "s.tks4";
    std::unique_ptr<CNode> empty(new CNode);
    std::vector<DriveListItem> rows(1);
    rows[0].SetKind(SourceKind::DiskPartition1);
    ASSERT_EQ(WriteSession(path, {RecoveryMode::DeletedFiles, &media, empty.get(), &rows, nullptr}, msgs), 1);
    SessionData back;
    ASSERT_TRUE(ReadSession(path, {}, back, msgs));
    EXPECT_EQ(back.top->firstChild, nullptr);
    ASSERT_TRUE(back.driveList);

    // Far deeper than any call stack could recurse.
    std::unique_ptr<CNode> deep(new CNode);
    CNode* at = deep.get();
    for (int i = 0; i < 100000; ++i) at = Add(at, u"d", 3, uint32_t(i));
    ASSERT_EQ(WriteSession(path, {RecoveryMode::DeletedFiles, &media, deep.get(), nullptr, nullptr}, msgs, true), 1);
    ASSERT_TRUE(ReadSession(path, {}, back, msgs));
    size_t depth = 0;
    for (CNode* n = back.top->firstChild; n; n = n->firstChild) ++depth;
    EXPECT_EQ(depth, 100000u);
}

TEST_F(SessionFixture, CorruptFilesAreRefusedWithOneMessage) {
    auto tree = SampleTree();
    std::vector<DriveListItem> rows(1);
    rows[0].SetKind(SourceKind::PhysicalDisk);
    CapturedMessages msgs;
    std::string path = dir / "s.tks4";
    ASSERT_EQ(WriteSession(path, {RecoveryMode::DeletedFiles, &media, tree.get(), &rows, nullptr}, msgs), 1);
    auto good = ReadAll(path);
    ReadSessionOptions noOpen;
    noOpen.openSource = false;
    // Every truncation, and a few hostile claims.
    std::vector<std::vector<uint8_t>> bad;
    for (size_t n = 0; n < good.size(); ++n) bad.emplace_back(good.begin(), good.begin() + long(n));
    auto trailing = good;
    trailing.push_back(0);
    bad.push_back(trailing);
    auto hugePath = good;
    PutLe32(&hugePath[20], 0xFFFFFFFFu);
    bad.push_back(hugePath);
    auto badMode = good;
    PutLe32(&badMode[4], 1234);
    bad.push_back(badMode);
    auto badCount = good;
    PutLe16(&badCount[good.size() - 6 - 272 - 80 + 2], 60000); // kind-4 count past the end
    bad.push_back(badCount);
    for (auto& bytes : bad) {
        MemorySource src(bytes);
        CapturedMessages m;
        SessionData out;
        EXPECT_FALSE(ReadSessionFrom(src, noOpen, out, m)) << bytes.size();
        ASSERT_EQ(m.shown.size(), 1u);
        EXPECT_EQ(m.shown[0].id, "IDS_CORRUPTED_REC_SESSION");
        EXPECT_FALSE(out.top);
    }
    MemorySource src(good);
    SessionData out;
    EXPECT_TRUE(ReadSessionFrom(src, noOpen, out, msgs));
}

TEST_F(SessionFixture, ReaderMessages) {
    auto tree = SampleTree();
    CapturedMessages msgs;
    std::string path = dir / "s.tks4";
    ASSERT_EQ(WriteSession(path, {RecoveryMode::DeletedPhotos, &media, tree.get(), nullptr, nullptr}, msgs), 1);
    SessionData out;

    ReadSessionOptions inside;
    inside.requestedFromOutside = false;
    inside.currentMode = RecoveryMode::DeletedFiles;
    EXPECT_FALSE(ReadSession(path, inside, out, msgs));
    ASSERT_EQ(msgs.shown.size(), 1u);
    EXPECT_EQ(msgs.shown[0].id, "IDS_THIS_REC_SES_CREATED_USING");
    EXPECT_EQ(CaptionOf(msgs.shown[0]), "Information");
    inside.currentMode = RecoveryMode::DeletedPhotos;
    EXPECT_TRUE(ReadSession(path, inside, out, msgs));

    std::filesystem::remove(image);
    msgs.shown.clear();
    EXPECT_FALSE(ReadSession(path, {}, out, msgs));
    ASSERT_EQ(msgs.shown.size(), 1u);
    EXPECT_EQ(msgs.shown[0].id, "IDS_SOURCE_IMAGE_NOT_FOUND");

    // A drive source ("q9" names no device) that is not present.
    std::vector<uint8_t> f(20, 0);
    std::memcpy(f.data(), "KST3", 4);
    PutLe32(&f[4], uint32_t(RecoveryMode::DeletedFiles));
    PutLe32(&f[8], 1);
    uint8_t tail[4 + 6 + 12 + 102] = {};
    PutLe32(tail, 2);
    PutLe16(tail + 4, 'q');
    PutLe16(tail + 6, '9');
    PutLe32(tail + 10 + 8, 512);
    tail[10 + 12 + 3] = kVolume;
    f.insert(f.end(), tail, tail + sizeof tail);
    MemorySource drive(f);
    msgs.shown.clear();
    EXPECT_FALSE(ReadSessionFrom(drive, {}, out, msgs));
    ASSERT_EQ(msgs.shown.size(), 1u);
    EXPECT_EQ(msgs.shown[0].id, "IDS_SOURCE_DRIVE_NOT_FOUND");
}

TEST_F(SessionFixture, WriteFailuresCarryTheCaptionOfTheirPlace) {
    CapturedMessages msgs;
    EXPECT_EQ(WriteSession((dir / "missing") + "/s.tks4", {RecoveryMode::DeletedFiles, nullptr, nullptr, nullptr, nullptr}, msgs), 0);
    ASSERT_EQ(msgs.shown.size(), 1u);
    EXPECT_EQ(msgs.shown[0].id, "IDS_FAILED_CREATING_SESSION_FILE");
    EXPECT_NE(TextOf(msgs.shown[0]).find("does not exist"), std::string::npos) << TextOf(msgs.shown[0]);

    // Every write fails past a file-size limit of 0 bytes, as on a full disk.
    struct FileSizeLimit {
        rlimit old{};
        FileSizeLimit() {
            std::signal(SIGXFSZ, SIG_IGN);
            getrlimit(RLIMIT_FSIZE, &old);
            rlimit zero = old;
            zero.rlim_cur = 0;
            setrlimit(RLIMIT_FSIZE, &zero);
        }
        ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &old); }
    };
    std::vector<DriveListItem> rows(1);
    rows[0].SetKind(SourceKind::Volume);
    auto tree = SampleTree();
    struct Case {
        SessionView view;
        const char* caption;
    } cases[] = {
        {{RecoveryMode::DeletedFiles, nullptr, nullptr, nullptr, nullptr}, "Error 6"},
        {{RecoveryMode::DeletedFiles, &media, tree.get(), nullptr, nullptr}, "Error 4"}, // the last name
        {{RecoveryMode::DeletedFiles, nullptr, nullptr, &rows, nullptr}, "Error 12"},
        {{RecoveryMode::DeletedFiles, nullptr, nullptr, nullptr, &rows}, "Error 15"},
    };
    std::string path = dir / "full.tks4";
    for (auto& c : cases) {
        msgs.shown.clear();
        {
            FileSizeLimit limit;
            EXPECT_EQ(WriteSession(path, c.view, msgs), 0);
        }
        ASSERT_EQ(msgs.shown.size(), 1u);
        EXPECT_EQ(CaptionOf(msgs.shown[0]), c.caption);
        EXPECT_EQ(msgs.shown[0].icon, MessageIcon::Error);
        // A failed write leaves nothing behind: no half session, no temporary.
        size_t left = 0;
        for (auto& e : std::filesystem::directory_iterator(dir.path)) left += e.path().filename() != "disk.img";
        EXPECT_EQ(left, 0u) << c.caption;
    }
    // A device node is never replaced by a session, consent or not.
    if (std::filesystem::exists("/dev/null")) {
        msgs.shown.clear();
        EXPECT_EQ(WriteSession("/dev/null", cases[0].view, msgs, true), 0);
        EXPECT_EQ(msgs.shown.size(), 1u);
    }
}

} // namespace
} // namespace kestrin
