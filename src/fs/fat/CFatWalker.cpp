#include "fs/fat/CFatWalker.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "fs/VolumeTree.h"
#include "fs/fat/FatLayout.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

using namespace layout::fat_dir;
namespace lfn = layout::fat_lfn;

// A volume label as the first entry of a folder, plain or with the folder and archive bits.
constexpr uint8_t kAttrLabelAll = kAttrVolumeLabel | kAttrFolder | kAttrArchive;
// Long-name units: the terminator, the padding after it, and the two trimmed from a name's end.
constexpr char16_t kUnitEnd = 0x0000, kUnitPad = 0xFFFF, kUnitBlank = 0x0020, kUnitFF = 0x00FF;
// Short names are in code page 437; its upper half maps through kCp437High.
constexpr uint8_t kFirstHighByte = 0x80;
// A real long name has at most 255 units (20 pieces); a longer run of pieces is garbage and is
// not gathered further, so a folder full of pieces costs linear time.
constexpr size_t kMaxLongName = 512;
// Folder clusters per read while walking.
constexpr size_t kFolderReadBytes = 1 << 20;

// Code page 437, bytes 0x80-0xFF (the OEM code page of short names).
constexpr char16_t kCp437High[128] = {
    0x00C7, 0x00FC, 0x00E9, 0x00E2, 0x00E4, 0x00E0, 0x00E5, 0x00E7, 0x00EA, 0x00EB, 0x00E8, 0x00EF, 0x00EE,
    0x00EC, 0x00C4, 0x00C5, 0x00C9, 0x00E6, 0x00C6, 0x00F4, 0x00F6, 0x00F2, 0x00FB, 0x00F9, 0x00FF, 0x00D6,
    0x00DC, 0x00A2, 0x00A3, 0x00A5, 0x20A7, 0x0192, 0x00E1, 0x00ED, 0x00F3, 0x00FA, 0x00F1, 0x00D1, 0x00AA,
    0x00BA, 0x00BF, 0x2310, 0x00AC, 0x00BD, 0x00BC, 0x00A1, 0x00AB, 0x00BB, 0x2591, 0x2592, 0x2593, 0x2502,
    0x2524, 0x2561, 0x2562, 0x2556, 0x2555, 0x2563, 0x2551, 0x2557, 0x255D, 0x255C, 0x255B, 0x2510, 0x2514,
    0x2534, 0x252C, 0x251C, 0x2500, 0x253C, 0x255E, 0x255F, 0x255A, 0x2554, 0x2569, 0x2566, 0x2560, 0x2550,
    0x256C, 0x2567, 0x2568, 0x2564, 0x2565, 0x2559, 0x2558, 0x2552, 0x2553, 0x256B, 0x256A, 0x2518, 0x250C,
    0x2588, 0x2584, 0x258C, 0x2590, 0x2580, 0x03B1, 0x00DF, 0x0393, 0x03C0, 0x03A3, 0x03C3, 0x00B5, 0x03C4,
    0x03A6, 0x0398, 0x03A9, 0x03B4, 0x221E, 0x03C6, 0x03B5, 0x2229, 0x2261, 0x00B1, 0x2265, 0x2264, 0x2320,
    0x2321, 0x00F7, 0x2248, 0x00B0, 0x2219, 0x00B7, 0x221A, 0x207F, 0x00B2, 0x25A0, 0x00A0,
};

char16_t OemChar(uint8_t b, bool lower) {
    if (b >= kFirstHighByte) return kCp437High[b - kFirstHighByte];
    if (lower && b >= 'A' && b <= 'Z') return char16_t(b + ('a' - 'A'));
    return char16_t(b);
}

bool IsDotEntries(std::span<const uint8_t> b) {
    return Name83::Is(b, kDotName) && Name83::Is(b, kDotDotName, kEntryBytes);
}

// Characters an 8.3 name never holds (besides control characters and lower case).
bool IllegalShortNameByte(uint8_t b) {
    if (b < kBlank || (b >= 'a' && b <= 'z')) return true;
    for (char c : std::string_view("\"*+,./:;<=>?[\\]|"))
        if (b == uint8_t(c)) return true;
    return false;
}

// The displayed name of a short (8.3) entry: blanks cut, "." before a non-empty extension, the
// case flags' lower-case bits applied, 0x05 read as 0xE5, and "X" in place of a deleted entry's
// lost first character. Bytes above 0x7F are read as code page 437.
std::u16string FatShortName(std::span<const uint8_t> e, bool deleted) {
    std::u16string name;
    if (e.size() < kEntryBytes) return name;
    const uint8_t caseFlags = CaseFlags::At(e.data());
    Bytes base = Name::In(e), ext = Extension::In(e);
    size_t baseLen = base.size(), extLen = ext.size();
    while (baseLen > 0 && base[baseLen - 1] == kBlank) --baseLen;
    while (extLen > 0 && ext[extLen - 1] == kBlank) --extLen;
    for (size_t i = 0; i < baseLen; ++i) {
        uint8_t b = base[i];
        if (i == 0 && b == kE5Substitute) b = kDeletedMark;
        name += OemChar(b, caseFlags & kCaseLowerBase);
    }
    if (extLen > 0) {
        name += u'.';
        for (size_t i = 0; i < extLen; ++i) name += OemChar(ext[i], caseFlags & kCaseLowerExtension);
    }
    // The first character of a deleted short name is gone (overwritten by 0xE5): show "X".
    if (deleted && !name.empty() && name[0] != u'.') name[0] = u'X';
    return name;
}

// One long-name piece: 13 units, cut at the first 0x0000, 0xFFFF padding dropped; the piece that
// ends the name (`endOfName`) also loses trailing 0x0020 and 0x00FF units.
std::u16string FatLongNamePiece(std::span<const uint8_t> e, bool endOfName) {
    std::u16string piece;
    if (e.size() < kEntryBytes) return piece;
    for (uint8_t at : lfn::kUnitOffsets) {
        char16_t u = Le16(e.data() + at);
        if (u == kUnitEnd) break; // the name ends here; what follows is padding
        if (u == kUnitPad) continue;
        piece += u;
    }
    while (endOfName && !piece.empty() && (piece.back() == kUnitBlank || piece.back() == kUnitFF)) piece.pop_back();
    return piece;
}

} // namespace

FatFolderShape FatFolderClusterShape(std::span<const uint8_t> c, uint32_t highest) {
    const size_t count = c.size() / kEntryBytes;
    size_t shorts = 0;
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* e = c.data() + i * kEntryBytes;
        const uint8_t status = Status::At(e);
        if (status == kEndOfFolder) {
            if (shorts == 0) return FatFolderShape::kNone;
            for (size_t k = i * kEntryBytes; k < c.size(); ++k)
                if (c[k] != 0) return FatFolderShape::kNone;
            return FatFolderShape::kEnds;
        }
        const uint8_t attr = Attributes::At(e);
        if (attr == kAttrLongName) {
            // Order 1-20 with the "last piece" bit, or a deleted piece; type 0; cluster 0.
            const uint8_t order = lfn::Order::At(e);
            if (lfn::Type::At(e) != 0 || lfn::Cluster::At(e) != 0) return FatFolderShape::kNone;
            if (order != kDeletedMark && ((order & lfn::kOrderBadBits) != 0 || (order & lfn::kOrderMask) == 0 ||
                                          (order & lfn::kOrderMask) > lfn::kMaxPieces))
                return FatFolderShape::kNone;
            continue;
        }
        if ((attr & kAttrReservedBits) != 0 || (CaseFlags::At(e) & ~(kCaseLowerBase | kCaseLowerExtension)) != 0 ||
            status == kBlank)
            return FatFolderShape::kNone;
        for (size_t k = 0; k < Name83::kSize; ++k) {
            const uint8_t b = e[Name83::kOffset + k];
            if (k == 0 && (b == kDeletedMark || b == kE5Substitute)) continue;
            if (IllegalShortNameByte(b)) return FatFolderShape::kNone;
        }
        if (FirstClusterAt(e) > highest) return FatFolderShape::kNone;
        if ((attr & kAttrFolder) && FileSize::At(e) != 0) return FatFolderShape::kNone;
        ++shorts;
    }
    return shorts ? FatFolderShape::kFull : FatFolderShape::kNone;
}

uint32_t FatRootId(const FatGeometry& g) {
    return HasFatRootRegion(g.fsKind) ? kFat16RootId : layout::fat_table::kFirstDataCluster;
}

CFatWalker::CFatWalker(CFatVolume& volume, int mode, ScanContext* ctx)
    : CFolderWalker(volume, ctx, FatRootId(volume.Geometry())), m_mode(mode), m_code(FatRootId(volume.Geometry())) {
    if (m_root) {
        m_index[m_code] = m_root;
        if (ScanEntry* lost = LostFolderOf(m_root)) m_index[0] = lost;
    }
}

ScanEntry* CFatWalker::TakeRoot() {
    m_index.clear();
    return CFolderWalker::TakeRoot();
}

ScanEntry* CFatWalker::FindFolder(uint32_t recordId) const {
    auto it = m_index.find(recordId);
    return it == m_index.end() ? nullptr : it->second;
}

void CFatWalker::SetFolderClusters(uint32_t first, std::vector<uint32_t> clusters, bool headless) {
    const uint32_t bytes = m_vol.Geometry().clusterBytes;
    const size_t most = size_t(std::max<uint64_t>(1, kFatMaxFolderBytes / std::max<uint32_t>(bytes, 1)));
    if (clusters.size() > most) clusters.resize(most);
    m_given[first] = {std::move(clusters), headless};
}

void CFatWalker::AddEntry(ScanEntry* folder, ScanEntry* e) {
    // kFatWalkDeletedOnly merges into an existing tree: a deleted folder already listed under this parent is
    // refreshed from the newer sighting instead of being listed twice.
    if (m_mode == kFatWalkDeletedOnly) {
        if ((e->flags & kNodeInUse) && !(e->flags & kNodeFolder)) {
            m_times.Drop(e);
            FreeScanEntries(e);
            return;
        }
        if (e->flags & kNodeFolder) {
            for (ScanEntry* c = folder->firstChild; c; c = c->nextSibling) {
                if (c->flags != kNodeFolder || c->recordId != e->recordId) continue;
                if (c->createdDate <= e->createdDate) {
                    c->createdDate = e->createdDate;
                    TakeTimes(c, e);
                    c->flags = e->flags;
                    c->name = std::move(e->name);
                    c->nameLength = e->nameLength;
                }
                m_times.Drop(e);
                FreeScanEntries(e);
                return;
            }
        }
    }
    // Folders found as bare clusters are read where they are met first; a later entry naming one
    // (its old parent's entry, read after it) is not listed a second time, but gives a folder
    // that so far had only its number as name its real name and dates.
    if (m_mode == kFatWalkBare && (e->flags & kNodeFolder)) {
        ScanEntry* known = FindFolder(e->recordId);
        if (known && known != folder && known != m_root && known->recordId != 0) {
            if (known->name == RecordName(known->recordId)) {
                known->name = std::move(e->name);
                known->nameLength = e->nameLength;
                known->createdDate = e->createdDate;
                known->modifiedDate = e->modifiedDate;
                TakeTimes(known, e);
            }
            m_times.Drop(e);
            FreeScanEntries(e);
            return;
        }
    }
    Prepend(folder, e);
}

bool CFatWalker::ParseEntries(std::span<const uint8_t> buf, ScanEntry* folder) {
    const size_t count = buf.size() / kEntryBytes;
    const uint32_t highest = m_vol.Geometry().highestCluster;
    size_t i = 0;
    // A volume label as the first entry is not an item.
    if (count > 0 && (Attributes::At(buf.data()) == kAttrVolumeLabel || Attributes::At(buf.data()) == kAttrLabelAll))
        i = 1;
    if (count >= 2 && IsDotEntries(buf)) {
        if (m_mode == kFatWalkDeletedOnly || m_mode == kFatWalkFull) {
            // The "." entry must name this folder's own cluster; in the full walk ".." must name
            // the parent (0 meaning the root) and "." carry the folder's creation date, so a
            // deleted folder whose cluster now holds another folder is not read as its own. A ".."
            // naming the folder itself is damage to that one entry, not another folder's: the
            // entries are read (the index below keeps the folder from being read twice).
            if (FirstClusterAt(buf.data()) != folder->recordId) return true;
            if (m_mode == kFatWalkFull) {
                uint32_t up = FirstClusterAt(buf.data() + kEntryBytes);
                if (up == 0) up = m_code;
                if ((up != folder->parentRecordId && up != folder->recordId) ||
                    CreationDate::At(buf.data()) != folder->createdDate)
                    return true;
            }
        }
        m_index.emplace(folder->recordId, folder);
        i = 2;
    }
    const bool inDeletedFolder = folder->flags == kNodeFolder;
    for (; i < count; ++i) {
        std::span<const uint8_t> e = buf.subspan(i * kEntryBytes, kEntryBytes);
        const uint8_t status = Status::At(e.data());
        if (status == kEndOfFolder) return true;
        const uint8_t attr = Attributes::At(e.data());
        // Attributes no entry holds mean this is not a folder entry at all: the folder ends.
        if (ImpossibleAttributes(attr)) return true;
        if (attr == kAttrLongName && lfn::Type::At(e.data()) == 0) {
            // Pieces are stored last first: each goes in front of what was gathered. The trims
            // belong to the end of the name, so only the first piece met (the name's last) is
            // trimmed; a blank that falls on a piece boundary inside the name stays, as Windows
            // shows it.
            if (m_longName.size() < kMaxLongName) m_longName.insert(0, FatLongNamePiece(e, m_longName.empty()));
            continue;
        }
        std::u16string longName = std::move(m_longName);
        m_longName.clear();
        const uint32_t cluster = FirstClusterAt(e.data());
        const bool isFolder = attr & kAttrFolder;
        // A file without a first cluster holds no data: it is listed, empty. Other clusters out of
        // range (and a folder naming the folder it is in) are not entries of this volume.
        const bool noData = cluster == 0 && !isFolder;
        if (!noData && (cluster <= m_code || cluster > highest || cluster == folder->recordId)) continue;
        const uint8_t caseFlags = CaseFlags::At(e.data());
        if ((caseFlags & ~(kCaseLowerBase | kCaseLowerExtension)) != 0) continue;

        const bool deleted = status == kDeletedMark;
        std::u16string name = longName.empty() ? FatShortName(e, deleted) : std::move(longName);
        if (name.empty()) name = RecordName(cluster);
        uint8_t flags = uint8_t((deleted ? 0 : kNodeInUse) | (isFolder ? kNodeFolder : 0));
        if (inDeletedFolder) flags &= uint8_t(~kNodeInUse);
        ScanEntry* entry = NewScanEntry(std::move(name), flags, cluster, folder->recordId);
        if (!entry) return true;
        entry->createdDate = CreationDate::At(e.data());
        // The last-access date is shown as the modified date, on purpose.
        entry->modifiedDate = AccessDate::At(e.data());
        ItemTimes times;
        times.created = FromDosDateTime(CreationDate::At(e.data()), CreationTime::At(e.data()), CreationTenths::At(e.data()));
        times.modified = FromDosDateTime(WriteDate::At(e.data()), WriteTime::At(e.data()));
        times.accessed = FromDosDateTime(AccessDate::At(e.data()), 0);
        m_times.Add(entry, times);
        entry->size = isFolder || noData ? 0 : FileSize::At(e.data());
        AddEntry(folder, entry);
    }
    return false;
}

void CFatWalker::ReadFolder(ScanEntry* folder) {
    const FatGeometry& g = m_vol.Geometry();
    m_longName.clear();
    if (HasFatRootRegion(g.fsKind) && folder->recordId == m_code) {
        std::vector<uint8_t> region(size_t(g.rootBytes));
        m_vol.ReadBytes(g.rootRegion, region.data(), region.size());
        ParseEntries(region, folder);
        m_longName.clear();
        return;
    }
    // Each folder is read once (the index holds those read); the root is registered up front.
    if (folder != m_root && m_index.count(folder->recordId)) return;
    if (g.clusterBytes == 0) return;
    std::vector<uint32_t> chain;
    bool headless = false;
    if (auto given = m_given.find(folder->recordId); given != m_given.end()) {
        headless = given->second.headless;
        // A headless run is read only as the numbered folder made for it under "Lost": a folder
        // entry elsewhere naming its first cluster points at what reuses that cluster, not at it.
        if (headless && folder->parentRecordId != 0) return;
        chain = given->second.clusters;
        if (headless) m_index.emplace(folder->recordId, folder);
    } else {
        size_t maxClusters = size_t(std::max<uint64_t>(1, kFatMaxFolderBytes / g.clusterBytes));
        chain = m_vol.FollowChain(folder->recordId, maxClusters);
    }
    m_vol.ReadClusters(chain, kFolderReadBytes, [&](size_t index, std::span<const uint8_t> data) {
        // A sub-folder must start with "." and ".."; anything else is not (or no longer) it.
        if (index == 0 && folder != m_root && !headless && !IsDotEntries(data)) return false;
        return !ParseEntries(data, folder);
    });
    m_longName.clear();
}

} // namespace kestrin
