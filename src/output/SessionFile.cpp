#include "output/SessionFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <new>

#include <fcntl.h>
#include <unistd.h>

#include "fs/VolumeHandle.h"
#include "output/Conditions.h"
#include "output/OutputGuard.h"
#include "platform/AtomicFile.h"
#include "platform/Platform.h"
#include "job/Modes.h"
#include "job/ScanOperation.h"
#include "storage/ByteSource.h"
#include "util/Bytes.h"
#include "util/Text.h"

namespace kestrin {

namespace {

namespace header = layout::session::header;
namespace path_length = layout::session::path_length;
namespace geometry = layout::session::geometry;
namespace partition = layout::session::partition;
namespace source = layout::session::source;
namespace node = layout::session::node;
namespace list_header = layout::session::list_header;
namespace drive_item = layout::session::drive_item;

// Longest path the system can name; a longer stored length can only be damage.
constexpr uint32_t kMaxPathUnits = 32767;
// Largest sector size the media probe can settle on.
constexpr uint32_t kMaxSectorSize = 66048;
// Longest node name in UTF-16 units (the length is one byte).
constexpr size_t kMaxNameUnits = 255;
constexpr size_t kWriteBuffer = 1 << 20;

// The partition descriptor at `p`, which has room for partition::kCoreBytes.
void PackPartition(uint8_t* p, const PartitionRecord& r) {
    partition::StartSector::Put(p, r.startSector);
    partition::Length::Put(p, r.length);
    partition::VolumeSerial::Put(p, r.volumeSerial);
    partition::FatStart::Put(p, r.fatStart);
    partition::SecondArea::Put(p, r.secondArea);
    partition::ThirdArea::Put(p, r.thirdArea);
    partition::FatSize::Put(p, r.fatSize);
    partition::IndexRecordSize::Put(p, r.indexRecordSize);
    partition::MftRecordSize::Put(p, r.mftRecordSize);
    partition::SectorsPerMftRecord::Put(p, r.sectorsPerMftRecord);
    partition::SectorsPerIndexRecord::Put(p, r.sectorsPerIndexRecord);
    partition::ClusterCount::Put(p, r.clusterCount);
    partition::BytesPerCluster::Put(p, r.bytesPerCluster);
    partition::BytesPerSector::Put(p, r.bytesPerSector);
    // The field is 8 bits: a larger count (exFAT) is stored as unknown; bytesPerCluster keeps it.
    partition::SectorsPerCluster::Put(p, r.sectorsPerCluster <= UINT8_MAX ? uint8_t(r.sectorsPerCluster) : uint8_t(0));
    partition::FsKind::Put(p, static_cast<uint8_t>(r.fsKind));
    partition::PartitionFlag::Put(p, static_cast<uint8_t>(r.partitionFlag));
    partition::Found::Put(p, r.found ? 1 : 0);
}

PartitionRecord UnpackPartition(const uint8_t* p) {
    PartitionRecord r;
    r.startSector = partition::StartSector::At(p);
    r.length = partition::Length::At(p);
    r.volumeSerial = partition::VolumeSerial::At(p);
    r.fatStart = partition::FatStart::At(p);
    r.secondArea = partition::SecondArea::At(p);
    r.thirdArea = partition::ThirdArea::At(p);
    r.fatSize = partition::FatSize::At(p);
    r.indexRecordSize = partition::IndexRecordSize::At(p);
    r.mftRecordSize = partition::MftRecordSize::At(p);
    r.sectorsPerMftRecord = partition::SectorsPerMftRecord::At(p);
    r.sectorsPerIndexRecord = partition::SectorsPerIndexRecord::At(p);
    r.clusterCount = partition::ClusterCount::At(p);
    r.bytesPerCluster = partition::BytesPerCluster::At(p);
    r.bytesPerSector = partition::BytesPerSector::At(p);
    r.sectorsPerCluster = partition::SectorsPerCluster::At(p);
    r.fsKind = static_cast<FsKind>(partition::FsKind::At(p));
    r.partitionFlag = static_cast<PartitionFlag>(partition::PartitionFlag::At(p));
    r.found = partition::Found::At(p) != 0;
    return r;
}

// Buffered writer that remembers at which place of the file each write was asked for, so a
// failure found when the buffer is flushed still carries the caption of its place.
class SessionOut {
public:
    explicit SessionOut(int fd) : m_fd(fd) { m_buffer.reserve(kWriteBuffer); }
    bool Put(const void* data, size_t len, int place) {
        if (!len) return true;
        m_place = place;
        auto* p = static_cast<const uint8_t*>(data);
        while (len) {
            size_t room = kWriteBuffer - m_buffer.size();
            size_t n = len < room ? len : room;
            m_buffer.insert(m_buffer.end(), p, p + n);
            p += n;
            len -= n;
            if (m_buffer.size() == kWriteBuffer && !Flush()) return false;
        }
        return true;
    }
    bool Flush() {
        size_t done = 0;
        while (done < m_buffer.size()) {
            ssize_t n = ::write(m_fd, m_buffer.data() + done, m_buffer.size() - done);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                m_error = platform::SysCodeFromErrno(n < 0 ? errno : ENOSPC);
                return false;
            }
            done += size_t(n);
        }
        m_buffer.clear();
        return true;
    }
    int Place() const { return m_place; }
    uint32_t Error() const { return m_error; }

private:
    int m_fd;
    std::vector<uint8_t> m_buffer;
    int m_place = 0;
    uint32_t m_error = 0;
};

// Places of the writes, numbered as the failure captions are: 1-5 the node tree, 6-9 header and
// source section (6 at two places), 10-12 the drive list, 13-15 the second list.
bool PutNode(SessionOut& out, const CNode& n) {
    uint8_t rec[node::kFixedBytes] = {};
    // Link fields only say whether a link exists; pointer values mean nothing in a file. The
    // object header is never read back; it is non-zero so that a file cut inside the first record
    // cannot pass for an empty tree followed by empty lists.
    node::ObjectHeader::Put(rec, 1);
    node::Size::Put(rec, n.size);
    node::Location::Put(rec, n.location);
    node::HasParent::Put(rec, n.parent ? 1 : 0);
    node::HasNextSibling::Put(rec, n.nextSibling ? 1 : 0);
    node::HasFirstChild::Put(rec, n.firstChild ? 1 : 0);
    node::RecordId::Put(rec, n.recordId);
    node::ParentRecordId::Put(rec, n.parentRecordId);
    node::CreatedDate::Put(rec, n.createdDate);
    node::ModifiedDate::Put(rec, n.modifiedDate);
    node::Flags::Put(rec, n.flags);
    node::Checked::Put(rec, n.checked);
    node::Carved::Put(rec, n.carved);
    node::HasName::Put(rec, n.name.empty() ? 0 : 1);
    node::NameLength::Put(rec, n.nameLength);
    node::StartOffset::Put(rec, n.startOffset);
    node::InDeletedView::Put(rec, n.inDeletedView);
    constexpr size_t kItem = node::kItemFieldsOffset, kName = node::kNameFieldsOffset;
    if (!out.Put(rec, kItem, 1) || !out.Put(rec + kItem, kName - kItem, 2) ||
        !out.Put(rec + kName, node::kFixedBytes - kName, 3))
        return false;
    // nameLength units are stored. Grouping folders keep 23 whatever their name, so a shorter
    // name is padded with zeros here rather than taking whatever follows it in memory.
    size_t units = n.nameLength;
    size_t have = n.name.size() < units ? n.name.size() : units;
    std::vector<uint8_t> name(units * 2, 0);
    for (size_t i = 0; i < have; ++i) PutLe16(name.data() + 2 * i, uint16_t(n.name[i]));
    if (!out.Put(name.data(), have * 2, 4)) return false;
    return out.Put(name.data() + have * 2, (units - have) * 2, 5);
}

bool PutGroup(SessionOut& out, const CNode* parent) {
    for (const CNode* c = parent->firstChild; c; c = c->nextSibling)
        if (!PutNode(out, *c)) return false;
    return true;
}

// Every folder's children together; a folder's own children after all of its siblings.
bool PutTree(SessionOut& out, const CNode* top) {
    if (!PutGroup(out, top)) return false;
    std::vector<const CNode*> stack{top->firstChild};
    while (!stack.empty()) {
        const CNode*& it = stack.back();
        while (it && !it->firstChild) it = it->nextSibling;
        if (!it) {
            stack.pop_back();
            continue;
        }
        const CNode* folder = it;
        it = it->nextSibling;
        if (!PutGroup(out, folder)) return false;
        stack.push_back(folder->firstChild);
    }
    return true;
}

bool PutList(SessionOut& out, const std::vector<DriveListItem>& list, int firstPlace) {
    // Counts of physical disks, volumes and the rest. Image-file rows are not stored, so they are not
    // counted either: the counts say how many rows follow.
    uint16_t counts[3] = {};
    for (auto& item : list) {
        SourceKind k = item.Kind();
        if (k == SourceKind::ImageFile) continue;
        ++counts[k == SourceKind::PhysicalDisk ? 0 : k == SourceKind::Volume ? 1 : 2];
    }
    uint8_t head[list_header::kBytes];
    list_header::PhysicalDisks::Put(head, counts[0]);
    list_header::Volumes::Put(head, counts[1]);
    list_header::Others::Put(head, counts[2]);
    if (!out.Put(head, sizeof head, firstPlace)) return false;
    for (auto& item : list) {
        if (item.Kind() == SourceKind::ImageFile) continue;
        if (!out.Put(item.raw.data(), item.raw.size(), firstPlace + 1)) return false;
        uint8_t rec[partition::kListBytes] = {};
        if (item.partition) PackPartition(rec, *item.partition);
        if (!out.Put(rec, sizeof rec, firstPlace + 2)) return false;
    }
    return true;
}

// Buffered reader over the session bytes; every Get is checked against what the file holds.
class SessionIn {
public:
    // The buffer never needs to exceed the file: a longer read fails either way.
    explicit SessionIn(ByteSource& src)
        : m_src(src), m_buffer(size_t(std::clamp<uint64_t>(src.Size(), 16, 1 << 20))) {}
    bool Get(void* dst, size_t n) {
        if (n > m_buffer.size()) return false;
        while (m_len - m_pos < n)
            if (!Fill()) return false;
        std::memcpy(dst, m_buffer.data() + m_pos, n);
        m_pos += n;
        return true;
    }
    bool AtEnd() { return m_pos == m_len && !Fill(); }
    uint64_t Tell() const { return m_fileOffset - (m_len - m_pos); }
    void Seek(uint64_t offset) {
        m_pos = m_len = 0;
        m_fileOffset = offset;
    }

private:
    bool Fill() {
        if (m_pos) {
            std::memmove(m_buffer.data(), m_buffer.data() + m_pos, m_len - m_pos);
            m_len -= m_pos;
            m_pos = 0;
        }
        if (m_len == m_buffer.size()) return false;
        long long n = m_src.ReadAt(m_buffer.data() + m_len, m_buffer.size() - m_len, m_fileOffset);
        if (n <= 0) return false;
        m_len += size_t(n);
        m_fileOffset += uint64_t(n);
        return true;
    }
    ByteSource& m_src;
    std::vector<uint8_t> m_buffer;
    size_t m_pos = 0, m_len = 0;
    uint64_t m_fileOffset = 0;
};

// One sibling group: records until one without a next-sibling mark. Nodes whose first-child mark
// is set are collected; their groups follow later in the file.
bool GetGroup(SessionIn& in, CNode* parent, std::vector<CNode*>& withChildren) {
    CNode* last = nullptr;
    for (;;) {
        uint8_t rec[node::kFixedBytes];
        if (!in.Get(rec, sizeof rec)) return false;
        auto* n = new (std::nothrow) CNode;
        if (!n) return false;
        n->parent = parent;
        if (last)
            last->nextSibling = n;
        else
            parent->firstChild = n;
        last = n;
        n->size = node::Size::At(rec);
        n->location = node::Location::At(rec);
        n->recordId = node::RecordId::At(rec);
        n->parentRecordId = node::ParentRecordId::At(rec);
        n->createdDate = node::CreatedDate::At(rec);
        n->modifiedDate = node::ModifiedDate::At(rec);
        n->flags = node::Flags::At(rec);
        n->checked = node::Checked::At(rec);
        n->carved = node::Carved::At(rec);
        n->nameLength = node::NameLength::At(rec);
        n->startOffset = node::StartOffset::At(rec);
        n->inDeletedView = node::InDeletedView::At(rec);
        uint8_t name[kMaxNameUnits * 2];
        if (!in.Get(name, size_t(n->nameLength) * 2)) return false;
        // Names are NUL-terminated strings in memory: a padded grouping-folder name ends at its
        // first zero unit.
        char16_t units[kMaxNameUnits];
        size_t count = 0;
        for (; count < n->nameLength; ++count) {
            units[count] = char16_t(Le16(name + 2 * count));
            if (!units[count]) break;
        }
        n->name = std::u16string_view(units, count);
        if (node::HasFirstChild::At(rec)) withChildren.push_back(n);
        if (!node::HasNextSibling::At(rec)) return true;
    }
}

bool GetTree(SessionIn& in, CNode* top) {
    struct Frame {
        std::vector<CNode*> withChildren;
        size_t next = 0;
    };
    std::vector<Frame> stack(1);
    if (!GetGroup(in, top, stack[0].withChildren)) return false;
    while (!stack.empty()) {
        Frame& f = stack.back();
        if (f.next == f.withChildren.size()) {
            stack.pop_back();
            continue;
        }
        CNode* folder = f.withChildren[f.next++];
        Frame child;
        if (!GetGroup(in, folder, child.withChildren)) return false;
        stack.push_back(std::move(child));
    }
    return true;
}

bool GetList(SessionIn& in, std::vector<DriveListItem>& list) {
    uint8_t head[list_header::kBytes];
    if (!in.Get(head, sizeof head)) return false;
    uint16_t want[3] = {list_header::PhysicalDisks::At(head), list_header::Volumes::At(head),
                        list_header::Others::At(head)};
    uint16_t seen[3] = {};
    size_t total = size_t(want[0]) + want[1] + want[2];
    for (size_t i = 0; i < total; ++i) {
        DriveListItem item;
        uint8_t rec[partition::kListBytes];
        if (!in.Get(item.raw.data(), item.raw.size()) || !in.Get(rec, sizeof rec)) return false;
        SourceKind k = item.Kind();
        if (k == SourceKind::ImageFile) return false; // never written
        ++seen[k == SourceKind::PhysicalDisk ? 0 : k == SourceKind::Volume ? 1 : 2];
        bool any = false;
        for (uint8_t b : rec) any |= b != 0;
        if (any) item.partition = UnpackPartition(rec);
        list.push_back(std::move(item));
    }
    return seen[0] == want[0] && seen[1] == want[1] && seen[2] == want[2];
}

bool GetLists(SessionIn& in, bool first, bool second, SessionData& out) {
    if (first) {
        out.driveList.emplace();
        if (!GetList(in, *out.driveList)) return false;
    }
    if (second) {
        out.secondList.emplace();
        if (!GetList(in, *out.secondList)) return false;
    }
    return in.AtEnd();
}

CNode* NewTop() {
    auto* top = new CNode;
    top->name = u"_R";
    top->nameLength = 2;
    top->flags = kNodeInUse | kNodeFolder;
    return top;
}

void Inform(IUserMessages& messages, const char* id) {
    messages.Show(InformationOf(id));
}

} // namespace

std::vector<DriveListItem> DriveListFromPartitions(const std::vector<PartitionRecord>& partitions, bool skipHead,
                                                   SourceKind kind) {
    static const char* const kNames[] = {"", "FAT16", "FAT32", "NTFS", "ExFAT", "FAT12"};
    std::vector<DriveListItem> rows;
    for (size_t i = skipHead ? 1 : 0; i < partitions.size(); ++i) {
        const PartitionRecord& p = partitions[i];
        DriveListItem row;
        drive_item::StartSector::Put(row.raw.data(), p.startSector);
        row.SetKind(kind);
        drive_item::ListIndex::Put(row.raw.data(), uint16_t(i));
        const auto fs = static_cast<size_t>(p.fsKind);
        std::string name = fs >= 1 && fs < std::size(kNames)
                               ? std::string(kNames[fs]) + " - " + std::to_string(i)
                               : "Partition - " + std::to_string(i);
        uint8_t* units = row.raw.data() + drive_item::Name::kOffset;
        for (size_t c = 0; c < name.size() && 2 * c + 1 < drive_item::Name::kSize; ++c)
            PutLe16(units + 2 * c, uint16_t(uint8_t(name[c])));
        row.partition = p;
        rows.push_back(row);
    }
    return rows;
}

int WriteSession(const std::string& path, const SessionView& s, IUserMessages& messages, bool replace) {
    // The session never replaces the source it describes, nor, without consent, any other file.
    std::vector<platform::FileIdentity> sources;
    if (s.media) sources = SourceIdentities(*s.media);
    OutputCheck check = CheckOutputFile(path, sources, replace);
    if (!check.ok()) {
        UserMessage m = InformationOf("IDS_FAILED_CREATING_SESSION_FILE");
        m.text.push_back(Words("\n"));
        for (UserText& piece : DescribeOutputProblem(check)) m.text.push_back(std::move(piece));
        messages.Show(m);
        return 0;
    }
    platform::AtomicFile file;
    if (!file.Create(path, replace)) {
        UserMessage m = InformationOf("IDS_FAILED_CREATING_SESSION_FILE");
        m.text.push_back(Words("\n" + path + ": " + platform::ErrnoText(file.Error())));
        messages.Show(m);
        return 0;
    }
    int fd = file.Handle();
    SessionOut out(fd);
    const CPhysicalDisk* media = s.media;
    bool ok = [&] {
        uint8_t head[header::kBytes];
        std::memcpy(head + header::Magic::kOffset, header::kMagic, header::Magic::kSize);
        header::Mode::Put(head, static_cast<uint32_t>(s.mode));
        header::HasSource::Put(head, media ? 1 : 0);
        header::HasDriveList::Put(head, s.driveList ? 1 : 0);
        header::HasSecondList::Put(head, s.secondList ? 1 : 0);
        if (!out.Put(head, sizeof head, 6)) return false;
        if (media) {
            std::u16string sourcePath = media->GetPath();
            if (media->GetDeviceKind() == kNotByName && !sourcePath.empty()) {
                // Image files are found again by path from wherever the session is opened.
                std::error_code ec;
                auto abs = std::filesystem::absolute(ToUtf8(sourcePath), ec);
                if (!ec) sourcePath = ToUtf16(abs.string());
            }
            if (sourcePath.size() > kMaxPathUnits) sourcePath.resize(kMaxPathUnits);
            uint8_t len[path_length::kBytes];
            path_length::Units::Put(len, uint32_t(sourcePath.size()));
            if (!out.Put(len, sizeof len, 6)) return false;
            std::vector<uint8_t> units((sourcePath.size() + 1) * 2, 0);
            for (size_t i = 0; i < sourcePath.size(); ++i) PutLe16(units.data() + 2 * i, uint16_t(sourcePath[i]));
            if (!out.Put(units.data(), units.size(), 7)) return false;
            // The volume the tree was found on, whatever the media selects now; a tree of several
            // volumes (or none) stores the media's selection.
            const VolumeHandle* found = SingleVolumeOf(s.top);
            const VolumeHandle fallback = found ? VolumeHandle{} : HandleOf(*media);
            const VolumeHandle& volume = found ? *found : fallback;
            uint8_t shape[geometry::kBytes];
            geometry::SectorCount::Put(shape, volume.sectorCount);
            geometry::SectorSize::Put(shape, volume.sectorSize);
            if (!out.Put(shape, sizeof shape, 8)) return false;
            uint8_t block[source::kBytes] = {};
            source::FsKind::Put(block, static_cast<uint8_t>(volume.fsKind));
            source::PartitionFlag::Put(block, static_cast<uint8_t>(volume.partitionFlag));
            source::SourceKind::Put(block, static_cast<uint8_t>(volume.sourceKind));
            source::DeviceKind::Put(block, uint8_t(media->GetDeviceKind()));
            source::FirstSector::Put(block, volume.firstSector);
            PackPartition(block + source::kPartitionOffset, volume.params);
            if (!out.Put(block, sizeof block, 9)) return false;
            if (s.top && !PutTree(out, s.top)) return false;
        }
        if (s.driveList && !PutList(out, *s.driveList, 10)) return false;
        if (s.secondList && !PutList(out, *s.secondList, 13)) return false;
        return out.Flush();
    }();
    if (ok && file.Commit()) return 1;
    if (ok) {
        // Everything was written but could not be moved into place (the name was taken meanwhile,
        // the disk filled up at the last moment): the temporary is gone, any old file stays.
        messages.Show({"", {Words(path + ": " + platform::ErrnoText(file.Error()))}, {"IDS_INFORMATION"}, MessageIcon::Error});
        return 0;
    }
    file.Abort();
    // A media-level failure code of 1006 ends the write without a second message.
    if (media && media->GetLastError() == 1006) return 0;
    // The media rarely holds a code of its own; then the failed write's code is the one to show.
    uint32_t code = media && media->GetLastError() ? media->GetLastError() : out.Error();
    messages.Show({"", {Words(CStorageMedia::ErrorText(code))}, Words("Error " + std::to_string(out.Place())), MessageIcon::Error});
    return 0;
}

int WriteScanSession(const std::string& path, RecoveryMode mode, const CPhysicalDisk& media, const CNode* top,
                     IUserMessages& messages, bool replace) {
    SourceKind kind = media.GetDeviceKind() == kNotByName ? SourceKind::ImagePartition : SourceKind::DiskPartition1;
    auto first = DriveListFromPartitions(media.Partitions(), true, kind);
    auto second = DriveListFromPartitions(media.SecondPartitions(), false, kind);
    return WriteSession(path, {mode, &media, top, &first, second.empty() ? nullptr : &second}, messages, replace);
}

bool ReadSessionFrom(ByteSource& bytes, const ReadSessionOptions& options, SessionData& out,
                     IUserMessages& messages) {
    out = SessionData{};
    SessionIn in(bytes);
    auto corrupted = [&] {
        out = SessionData{};
        Inform(messages, "IDS_CORRUPTED_REC_SESSION");
        return false;
    };
    uint8_t head[header::kBytes];
    if (!in.Get(head, sizeof head) || !header::Magic::Is(head, header::kMagic)) return corrupted();
    const auto mode = static_cast<RecoveryMode>(header::Mode::At(head));
    uint32_t hasSource = header::HasSource::At(head),
             hasList = header::HasDriveList::At(head), hasSecond = header::HasSecondList::At(head);
    if (!FindMode(mode) || hasSource > 1 || hasList > 1 || hasSecond > 1) return corrupted();
    if (!options.requestedFromOutside && mode != options.currentMode) {
        messages.Show({"IDS_THIS_REC_SES_CREATED_USING",
                       {UserText{"IDS_THIS_REC_SES_CREATED_USING"}, Words(" "), UserText{FindMode(mode)->titleId},
                        Words(" "), UserText{"IDS_OPTION_GO_TO"}, Words(" "), UserText{"IDS_OPTION_TOOLS_MENU"}},
                       Words("Information")});
        return false;
    }
    out.mode = mode;
    out.top.reset(NewTop());
    if (hasSource) {
        uint8_t len[path_length::kBytes];
        if (!in.Get(len, sizeof len)) return corrupted();
        uint32_t units = path_length::Units::At(len);
        if (units > kMaxPathUnits) return corrupted();
        std::vector<uint8_t> raw((size_t(units) + 1) * 2);
        if (!in.Get(raw.data(), raw.size()) || Le16(raw.data() + 2 * units) != 0) return corrupted();
        std::u16string sourcePath;
        for (uint32_t i = 0; i < units; ++i) sourcePath.push_back(char16_t(Le16(raw.data() + 2 * i)));
        uint8_t shape[geometry::kBytes], block[source::kBytes];
        if (!in.Get(shape, sizeof shape) || !in.Get(block, sizeof block)) return corrupted();
        uint64_t sectorCount = geometry::SectorCount::At(shape);
        uint32_t sectorSize = geometry::SectorSize::At(shape);
        const auto fsKind = static_cast<FsKind>(source::FsKind::At(block));
        const auto sourceKind = static_cast<SourceKind>(source::SourceKind::At(block));
        uint8_t deviceKind = source::DeviceKind::At(block);
        if (sectorSize == 0 || sectorSize > kMaxSectorSize || fsKind > FsKind::Fat12 || sourceKind > SourceKind::ImageFile ||
            deviceKind > kVolume || sourcePath.empty() || sourcePath.find(u'\0') != std::u16string::npos)
            return corrupted();
        out.sourcePath = sourcePath;
        auto media = std::make_unique<CPhysicalDisk>();
        if (options.openSource) {
            bool image = deviceKind == kNotByName || sourceKind == SourceKind::ImagePartition || sourceKind == SourceKind::ImageFile;
            if (image) {
                bool attached = media->AttachImageFile(ToUtf8(sourcePath), sectorSize);
                if (!attached && options.locateImage) {
                    // The tree is read again from the file at its new place; the session keeps
                    // that place from now on.
                    std::string moved = options.locateImage(ToUtf8(sourcePath));
                    if (!moved.empty() && media->AttachImageFile(moved, sectorSize)) {
                        attached = true;
                        sourcePath = ToUtf16(moved);
                        out.sourcePath = sourcePath;
                    }
                }
                if (!attached) {
                    out = SessionData{};
                    Inform(messages, "IDS_SOURCE_IMAGE_NOT_FOUND");
                    return false;
                }
            } else if (!media->Open(sourcePath)) {
                out = SessionData{};
                Inform(messages, "IDS_SOURCE_DRIVE_NOT_FOUND");
                return false;
            }
        } else {
            media->SetPath(sourcePath);
        }
        media->SetSectorSize(sectorSize);
        media->SetSectorCount(sectorCount);
        media->SetFirstSector(source::FirstSector::At(block));
        media->SetFsKind(fsKind);
        media->SetPartitionFlag(static_cast<PartitionFlag>(source::PartitionFlag::At(block)));
        media->SetSourceKind(sourceKind);
        media->SetPartitionParams(UnpackPartition(block + source::kPartitionOffset));
        out.media = std::move(media);
        // The tree has no count: it ends where its sibling marks say. A source whose tree was
        // empty wrote no records at all, so when the records do not parse, the lists may follow
        // directly.
        uint64_t treeStart = in.Tell();
        SessionData lists;
        if (!GetTree(in, out.top.get()) || !GetLists(in, hasList, hasSecond, lists)) {
            out.top.reset(NewTop());
            in.Seek(treeStart);
            lists = SessionData{};
            if (!GetLists(in, hasList, hasSecond, lists)) return corrupted();
        }
        out.driveList = std::move(lists.driveList);
        out.secondList = std::move(lists.secondList);
        // The stored selection is the volume the tree was found on.
        StampVolumes(out.top.get(), *out.media);
        // Conditions are not stored: they are judged again from the volume as it is now.
        if (options.openSource) JudgeConditions(*out.media, out.top.get());
    } else {
        SessionData lists;
        if (!GetLists(in, hasList, hasSecond, lists)) return corrupted();
        out.driveList = std::move(lists.driveList);
        out.secondList = std::move(lists.secondList);
    }
    // The partition lists of the media come back from the drive lists.
    if (out.media) {
        auto restore = [](const std::optional<std::vector<DriveListItem>>& rows, std::vector<PartitionRecord>& into) {
            if (!rows) return;
            for (auto& r : *rows)
                if (r.partition) into.push_back(*r.partition);
        };
        restore(out.driveList, out.media->Partitions());
        restore(out.secondList, out.media->SecondPartitions());
    }
    return true;
}

bool ReadSession(const std::string& path, const ReadSessionOptions& options, SessionData& out,
                 IUserMessages& messages) {
    platform::File f;
    if (!f.OpenRead(path)) {
        out = SessionData{};
        Inform(messages, "IDS_CORRUPTED_REC_SESSION");
        return false;
    }
    FileSource src(std::move(f));
    return ReadSessionFrom(src, options, out, messages);
}

} // namespace kestrin
