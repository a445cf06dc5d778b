#include "fs/exfat/CExFatWalker.h"

#include <algorithm>
#include <string>
#include <vector>

#include "fs/VolumeTree.h"
#include "job/ScanContext.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

constexpr size_t kEntryBytes = 32;
constexpr size_t kNameUnitsPerEntry = 15;
constexpr size_t kFolderReadBytes = 1 << 20;

enum EntryType : uint8_t {
    kTypeBitmap = 0x81,
    kTypeUpcase = 0x82,
    kTypeLabel = 0x83,
    kTypeFile = 0x85,
    kTypeFileDeleted = 0x05,
    kTypeStream = 0xC0,
    kTypeStreamDeleted = 0x40,
    kTypeName = 0xC1,
    kTypeNameDeleted = 0x41,
};

// The entry set being gathered.
struct EntrySet {
    bool open = false;
    uint32_t remaining = 0; // secondary entries still expected
    uint8_t flags = 0;
    uint16_t createdDate = 0, modifiedDate = 0;
    uint8_t nameLength = 0;
    uint64_t size = 0;
    uint32_t firstCluster = 0;
    std::u16string name;
};

} // namespace

CExFatWalker::CExFatWalker(CFatVolume& volume, ScanContext* ctx) : m_vol(volume), m_ctx(ctx) {
    m_root = MakeVolumeRoot(volume.Geometry().rootCluster);
}

CExFatWalker::~CExFatWalker() {
    if (m_root) FreeScanEntries(m_root);
}

ScanEntry* CExFatWalker::TakeRoot() {
    ScanEntry* r = m_root;
    m_root = nullptr;
    return r;
}

bool CExFatWalker::ParseEntries(std::span<const uint8_t> buf, ScanEntry* folder) {
    const FatGeometry& g = m_vol.Geometry();
    EntrySet set;
    for (size_t at = 0; at + kEntryBytes <= buf.size(); at += kEntryBytes) {
        const uint8_t* e = buf.data() + at;
        switch (e[0]) {
        case kTypeBitmap:
        case kTypeUpcase:
        case kTypeLabel:
            continue;
        case kTypeFile:
        case kTypeFileDeleted: {
            uint16_t attr = Le16(e + 4);
            if (attr > 0x30 || attr == 0x18) return true;
            set = {};
            set.open = true;
            set.remaining = e[1];
            set.createdDate = uint16_t(Le32(e + 8) >> 16);
            // The last-access date is shown as the modified date, on purpose.
            set.modifiedDate = uint16_t(Le32(e + 16) >> 16);
            set.flags = uint8_t((attr & 0x10 ? kNodeFolder : 0) | (e[0] == kTypeFile ? kNodeInUse : 0));
            continue;
        }
        case kTypeStream:
        case kTypeStreamDeleted:
            if (!set.open || set.remaining == 0) continue;
            // Exactly "allocation possible" without "no FAT chain": the clusters follow the FAT.
            if (e[1] == 1) set.flags |= kNodeFatChain;
            set.nameLength = e[3];
            set.size = Le64(e + 8);
            set.firstCluster = Le32(e + 20);
            --set.remaining;
            continue;
        case kTypeName:
        case kTypeNameDeleted: {
            if (!set.open || set.remaining == 0) continue;
            for (size_t i = 0; i < kNameUnitsPerEntry && set.name.size() < set.nameLength; ++i)
                set.name += char16_t(Le16(e + 2 + 2 * i));
            if (--set.remaining > 0) continue;
            set.open = false;
            const uint32_t c = set.firstCluster;
            if (c <= g.rootCluster || c > g.highestCluster || c == folder->recordId) continue;
            if (set.name.empty()) set.name = RecordName(c);
            uint8_t flags = set.flags;
            if (!(folder->flags & kNodeInUse)) flags &= uint8_t(~kNodeInUse);
            ScanEntry* entry = NewScanEntry(std::move(set.name), flags, c, folder->recordId);
            if (!entry) return true;
            entry->createdDate = set.createdDate;
            entry->modifiedDate = set.modifiedDate;
            entry->size = set.size;
            entry->parent = folder;
            entry->nextSibling = folder->firstChild;
            folder->firstChild = entry;
            ++m_made;
            continue;
        }
        default:
            continue;
        }
    }
    return false;
}

void CExFatWalker::ReadFolder(ScanEntry* folder) {
    const FatGeometry& g = m_vol.Geometry();
    if (folder->recordId < g.rootCluster || g.clusterBytes == 0) return;
    if (!m_read.insert(folder->recordId).second) return;
    const size_t maxClusters = size_t(std::max<uint64_t>(1, kExFatMaxFolderBytes / g.clusterBytes));
    std::vector<uint32_t> clusters;
    // The root has no stream entry of its own: its clusters are always in the FAT.
    if (folder == m_root || (folder->flags & kNodeFatChain)) {
        clusters = m_vol.FollowChain(folder->recordId, maxClusters);
    } else if (m_vol.IsDataCluster(folder->recordId)) {
        uint64_t n = (folder->size + g.clusterBytes - 1) / g.clusterBytes;
        n = std::min<uint64_t>({n, maxClusters, uint64_t(g.highestCluster) - folder->recordId + 1});
        for (uint64_t i = 0; i < n; ++i) clusters.push_back(uint32_t(folder->recordId + i));
    }
    m_vol.ReadClusters(clusters, kFolderReadBytes,
                       [&](size_t, std::span<const uint8_t> data, bool) { return !ParseEntries(data, folder); });
}

bool CExFatWalker::StopBeforeFolder() {
    if (!m_ctx) return false;
    return m_ctx->MustStop(m_vol.Media());
}

bool CExFatWalker::ReadFolderTree(ScanEntry* top) {
    if (!top || StopBeforeFolder()) return true;
    ReadFolder(top);
    // Depth first in child order, with an explicit stack: deep trees stay off the call stack.
    std::vector<ScanEntry*> stack{top->firstChild};
    while (!stack.empty()) {
        ScanEntry* child = stack.back();
        if (!child) {
            stack.pop_back();
            continue;
        }
        stack.back() = child->nextSibling;
        if (!(child->flags & kNodeFolder)) continue;
        if (m_ctx) {
            if (m_ctx->MustStop(m_vol.Media())) return true;
            m_ctx->Progress(int64_t(++m_visited), int64_t(m_made));
        }
        if (StopBeforeFolder()) return true;
        ReadFolder(child);
        stack.push_back(child->firstChild);
    }
    return false;
}

} // namespace kestrin
