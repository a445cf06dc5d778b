#include "fs/exfat/CExFatWalker.h"

#include <algorithm>
#include <string>
#include <vector>

#include "fs/VolumeTree.h"
#include "fs/exfat/ExFatLayout.h"
#include "fs/fat/FatLayout.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

using namespace layout;

constexpr size_t kFolderReadBytes = 1 << 20;
// The clusters follow the FAT when the stream flags are exactly "allocation possible".
constexpr uint8_t kFatChainFlags = exfat_stream::kAllocationPossible;

uint16_t DateOf(uint32_t timestamp) { return uint16_t(timestamp >> exfat_file::kTimestampDateShift); }

} // namespace

CExFatWalker::CExFatWalker(CFatVolume& volume, ScanContext* ctx)
    : CFolderWalker(volume, ctx, volume.Geometry().rootCluster) {}

bool CExFatWalker::ParseEntries(std::span<const uint8_t> buf, ScanEntry* folder) {
    const FatGeometry& g = m_vol.Geometry();
    EntrySet& set = m_set;
    using namespace exfat_dir;
    for (size_t at = 0; at + kEntryBytes <= buf.size(); at += kEntryBytes) {
        const uint8_t* e = buf.data() + at;
        const uint8_t type = EntryType::At(e);
        switch (type) {
        case kTypeFile:
        case Deleted(kTypeFile): {
            const uint16_t attr = exfat_file::Attributes::At(e);
            // Attributes (FAT's bits) no entry holds mean this is not a file entry at all.
            if (fat_dir::ImpossibleAttributes(attr)) return true;
            set = {};
            set.open = true;
            set.remaining = exfat_file::SecondaryCount::At(e);
            set.createdDate = DateOf(exfat_file::CreateTimestamp::At(e));
            // The last-access date is shown as the modified date, on purpose.
            set.modifiedDate = DateOf(exfat_file::AccessTimestamp::At(e));
            set.times.created = FromExFatTime(exfat_file::CreateTimestamp::At(e), exfat_file::Create10ms::At(e),
                                              exfat_file::CreateUtcOffset::At(e));
            set.times.modified = FromExFatTime(exfat_file::ModifyTimestamp::At(e), exfat_file::Modify10ms::At(e),
                                               exfat_file::ModifyUtcOffset::At(e));
            set.times.accessed = FromExFatTime(exfat_file::AccessTimestamp::At(e), 0, exfat_file::AccessUtcOffset::At(e));
            set.flags = uint8_t((attr & fat_dir::kAttrFolder ? kNodeFolder : 0) | (type == kTypeFile ? kNodeInUse : 0));
            continue;
        }
        case kTypeStream:
        case Deleted(kTypeStream):
            if (!set.open || set.remaining == 0) continue;
            // "Allocation possible" without "no FAT chain": the clusters follow the FAT.
            if (exfat_stream::Flags::At(e) == kFatChainFlags) set.flags |= kNodeFatChain;
            set.nameLength = exfat_stream::NameLength::At(e);
            // The size is the data length; bytes past the valid data length read as zeros (the
            // content reader finds that length again through the entry's place).
            set.size = exfat_stream::DataLength::At(e);
            set.streamAt = m_bufferAt + at;
            set.firstCluster = exfat_stream::FirstCluster::At(e);
            --set.remaining;
            continue;
        case kTypeName:
        case Deleted(kTypeName): {
            if (!set.open || set.remaining == 0) continue;
            const uint8_t* units = e + exfat_name::Units::kOffset;
            for (size_t i = 0; i < exfat_name::kUnitsPerEntry && set.name.size() < set.nameLength; ++i)
                set.name += char16_t(Le16(units + 2 * i));
            if (--set.remaining > 0) continue;
            set.open = false;
            const uint32_t c = set.firstCluster;
            // A file without a first cluster holds no data: it is listed, empty. Other clusters
            // out of range are not entries of this volume.
            const bool noData = c == 0 && !(set.flags & kNodeFolder);
            if (noData) set.size = 0;
            if (!noData && (c <= g.rootCluster || c > g.highestCluster || c == folder->recordId)) continue;
            if (set.name.empty()) set.name = RecordName(c);
            uint8_t flags = set.flags;
            if (!(folder->flags & kNodeInUse)) flags &= uint8_t(~kNodeInUse);
            ScanEntry* entry = NewScanEntry(std::move(set.name), flags, c, folder->recordId);
            if (!entry) return true;
            entry->createdDate = set.createdDate;
            entry->modifiedDate = set.modifiedDate;
            entry->size = set.size;
            m_times.Add(entry, set.times);
            // Where the stream extension entry lies: its sector, and its offset in that sector.
            const uint32_t sector = g.mediaSectorSize ? g.mediaSectorSize : 512;
            entry->location = set.streamAt / sector;
            entry->startOffset = uint32_t(set.streamAt % sector);
            Prepend(folder, entry);
            continue;
        }
        default: // bitmap, up-case table, label and the rest: not items
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
    // A set may run from one cluster of the folder into the next; none runs into another folder.
    m_set = {};
    m_vol.ReadClusters(clusters, kFolderReadBytes, [&](size_t index, std::span<const uint8_t> data) {
        m_bufferAt = m_vol.ClusterOffset(clusters[index]);
        return !ParseEntries(data, folder);
    });
    m_set = {};
}

} // namespace kestrin
