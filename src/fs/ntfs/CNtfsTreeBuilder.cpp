#include "fs/ntfs/CNtfsTreeBuilder.h"

#include <new>
#include <vector>

#include "fs/VolumeTree.h"
#include "fs/ntfs/NtfsEngine.h"

namespace kestrin {

CNtfsTreeBuilder::CNtfsTreeBuilder() {
    m_root = MakeVolumeRoot(kNtfsRootRecord);
    if (m_root && !LostFolderOf(m_root)) {
        FreeScanEntries(m_root);
        m_root = nullptr;
    }
    if (m_root) m_index = new (std::nothrow) CDirectoryIndex(m_root);
    if (m_root && !m_index) {
        FreeScanEntries(m_root);
        m_root = nullptr;
    }
}

CNtfsTreeBuilder::~CNtfsTreeBuilder() {
    delete m_index;
    for (auto& [id, holder] : m_vanished) FreeScanEntries(holder);
    if (m_root) FreeScanEntries(m_root);
}

namespace {

// A child belongs to the folder at its parent's record number when the sequence numbers agree
// (either unknown counts as agreeing). A deleted folder's record has usually had its sequence
// number raised by one when it was freed, so that is accepted too.
// Items one record may add (its names times its streams), and the longest name a node keeps.
constexpr size_t kMaxRecordItems = 4096;
constexpr size_t kMaxShownUnits = 255;

bool Belongs(const ScanEntry* child, const ScanEntry* folder) {
    uint16_t want = uint16_t(child->reserved >> 16), have = uint16_t(folder->reserved);
    if (want == 0 || have == 0 || want == have) return true;
    return !(folder->flags & kNodeInUse) && uint16_t(want + 1) == have;
}

} // namespace

ScanEntry* CNtfsTreeBuilder::VanishedFolder(uint32_t recordId) {
    auto it = m_vanished.find(recordId);
    if (it != m_vanished.end()) return it->second;
    ScanEntry* holder = NewScanEntry(RecordName(recordId), kNodeFolder, recordId, kUnknownParent);
    if (holder) m_vanished.emplace(recordId, holder);
    return holder;
}

void CNtfsTreeBuilder::Place(ScanEntry* e) {
    ScanEntry* folder = m_index->Find(e->parentRecordId);
    if (folder && !Belongs(e, folder)) {
        if (ScanEntry* holder = VanishedFolder(e->parentRecordId)) {
            e->parent = holder;
            e->nextSibling = holder->firstChild;
            holder->firstChild = e;
            return;
        }
    }
    m_index->InsertUnderParent(e);
}

// After a folder record took over its placeholder: children that named an earlier folder at the
// same record number move to that vanished folder's placeholder.
void CNtfsTreeBuilder::MoveStrangers(ScanEntry* folder) {
    ScanEntry** link = &folder->firstChild;
    while (ScanEntry* c = *link) {
        ScanEntry* holder = Belongs(c, folder) ? nullptr : VanishedFolder(folder->recordId);
        if (!holder) {
            link = &c->nextSibling;
            continue;
        }
        *link = c->nextSibling;
        c->parent = holder;
        c->nextSibling = holder->firstChild;
        holder->firstChild = c;
    }
}

// Record numbers of the volume root and of "Lost" never take a folder record over: a damaged
// record claiming them would otherwise rename the root or "Lost".
bool CNtfsTreeBuilder::Reserved(uint32_t recordId) const {
    return recordId == m_root->recordId || recordId == m_index->Lost()->recordId;
}

void CNtfsTreeBuilder::AddRecord(ScanEntry* e) {
    if (!e) return;
    if (!m_root) {
        delete e;
        return;
    }
    // A file record with neither a name nor data (the reserved records after the metadata files)
    // has nothing to show.
    if (e->name.empty() && e->size == 0 && !(e->flags & kNodeFolder)) {
        delete e;
        return;
    }
    if (e->name.empty()) {
        // The "#<record>" text gets its own length (not a fixed field width), so that every
        // reader of nameLength stays inside the name.
        e->name = RecordName(e->recordId);
        e->nameLength = uint8_t(e->name.size());
    }
    if (e->flags & kNodeFolder) {
        if (Reserved(e->recordId)) {
            delete e;
            return;
        }
        ScanEntry* existing = m_index->FindOrAdd(e);
        if (existing != e) {
            existing->createdDate = e->createdDate;
            existing->modifiedDate = e->modifiedDate;
            existing->recordId = e->recordId;
            existing->flags = e->flags;
            existing->nameLength = e->nameLength;
            existing->name = std::move(e->name);
            existing->reserved = e->reserved;
            if (e->parentRecordId) existing->parentRecordId = e->parentRecordId;
            if (!existing->location) existing->location = e->location;
            delete e;
            e = existing;
            MoveStrangers(e);
        }
        if (e->parentRecordId < kUnknownParent && !e->parent) Place(e);
        return;
    }
    if (m_found) m_found->NoteFile(!(e->flags & kNodeInUse));
    if (e->parentRecordId == kUnknownParent) e->parentRecordId = m_index->Lost()->recordId;
    Place(e);
}

void CNtfsTreeBuilder::AddRecord(ScanEntry* e, const NtfsRecordExtras& extras) {
    if (!e || !m_root || extras.Empty()) {
        AddRecord(e);
        return;
    }
    // What the copies share, taken before the entry may be merged into a placeholder.
    const bool folder = e->flags & kNodeFolder;
    const uint64_t location = e->location;
    const uint32_t recordId = e->recordId;
    const uint16_t sequence = uint16_t(e->reserved), created = e->createdDate, modified = e->modifiedDate;
    const uint8_t state = uint8_t(e->flags & kNodeInUse);
    struct Spot {
        std::u16string_view name;
        uint32_t parent;
        uint16_t parentSequence;
    };
    std::vector<Spot> places;
    const std::u16string first = e->name.empty() ? RecordName(recordId) : std::u16string(e->name.view());
    places.push_back({first, e->parentRecordId, uint16_t(e->reserved >> 16)});
    // A folder has one place in the tree: further names of a folder record are damage.
    if (!folder)
        for (const NtfsLink& l : extras.links) places.push_back({l.name, l.parentRecordId, l.parentSequence});
    const uint64_t size = e->size;
    AddRecord(e);

    auto add = [&](const Spot& p, std::u16string name, uint64_t bytes, uint8_t flags) {
        ScanEntry* c = NewScanEntry(std::move(name), flags, recordId, p.parent);
        if (!c) return false;
        c->size = bytes;
        c->location = location;
        c->createdDate = created;
        c->modifiedDate = modified;
        c->reserved = sequence | uint32_t(p.parentSequence) << 16;
        AddRecord(c);
        return true;
    };
    size_t items = 0;
    for (size_t i = 1; i < places.size(); ++i)
        if (++items > kMaxRecordItems || !add(places[i], std::u16string(places[i].name), size, state)) return;
    for (const NtfsStream& st : extras.streams)
        for (const Spot& p : places) {
            // "name:stream"; a name too long for both loses its end, never the stream's name.
            const size_t room = kMaxShownUnits > st.name.size() + 1 ? kMaxShownUnits - st.name.size() - 1 : 0;
            std::u16string shown(p.name.substr(0, room));
            shown.append(1, u':').append(st.name);
            if (++items > kMaxRecordItems || !add(p, std::move(shown), st.size, state | kNodeNtfsStream)) return;
        }
}

void CNtfsTreeBuilder::AddIndexFolder(NtfsIndexFolder&& f) {
    if (!m_root || f.recordId == f.parentRecordId || f.name == u"." || Reserved(f.recordId)) return;
    ScanEntry* e = NewScanEntry(std::move(f.name), kNodeInUse | kNodeFolder, f.recordId, f.parentRecordId);
    if (!e) return;
    e->createdDate = f.createdDate;
    e->modifiedDate = f.modifiedDate;
    ScanEntry* existing = m_index->FindOrAdd(e);
    if (existing != e) {
        // A placeholder learns its folder's name and place from the index entry; a folder known
        // from its own record keeps what the record said.
        if (existing->parentRecordId == kUnknownParent && !existing->parent) {
            existing->name = std::move(e->name);
            existing->nameLength = e->nameLength;
            existing->parentRecordId = e->parentRecordId;
            existing->createdDate = e->createdDate;
            existing->modifiedDate = e->modifiedDate;
            existing->flags = e->flags;
        }
        delete e;
        e = existing;
    }
    if (!e->parent && e->parentRecordId < kUnknownParent) m_index->InsertUnderParent(e);
}

CNode* CNtfsTreeBuilder::Finish(CNode* top) {
    if (!m_root) return nullptr;
    if (ScanEntry* lost = m_index->Lost()) {
        for (auto& [id, holder] : m_vanished) {
            holder->parent = lost;
            holder->parentRecordId = lost->recordId;
            holder->nextSibling = lost->firstChild;
            lost->firstChild = holder;
        }
        m_vanished.clear();
    }
    m_index->PlaceOrphans();
    delete m_index;
    m_index = nullptr;
    ScanEntry* root = m_root;
    m_root = nullptr;
    if (!top) {
        FreeScanEntries(root);
        return nullptr;
    }
    return AttachVolume(top, root);
}

} // namespace kestrin
