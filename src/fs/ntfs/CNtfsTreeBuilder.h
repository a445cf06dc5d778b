#pragma once
// Builds one NTFS volume's scan-entry tree from parsed records and index entries, in whatever
// order they arrive: folders are found by record number, missing parents get placeholders, a real
// folder record takes over its placeholder, and orphans end in "Lost".
#include <cstdint>
#include <map>

#include "fs/DirectoryIndex.h"
#include "fs/ntfs/NtfsRecord.h"
#include "job/ScanOperation.h"

namespace kestrin {

class CNtfsTreeBuilder {
public:
    CNtfsTreeBuilder();
    ~CNtfsTreeBuilder();
    CNtfsTreeBuilder(const CNtfsTreeBuilder&) = delete;
    CNtfsTreeBuilder& operator=(const CNtfsTreeBuilder&) = delete;

    bool Ok() const { return m_root != nullptr; }
    // Takes a scan entry filled by ParseFileRecord from a record that yielded an item.
    void AddRecord(ScanEntry* e);
    // The same, with what else the record holds: every further name of a file becomes an item of
    // its own in its own folder, and every stream an item "name:stream" beside each name of its
    // file or folder. They all share the record's state and place; streams carry kNodeNtfsStream.
    void AddRecord(ScanEntry* e, const NtfsRecordExtras& extras);
    // Takes a folder named by an index entry.
    void AddIndexFolder(NtfsIndexFolder&& f);
    // Counts the files it lists into `found` as they come (for the progress display).
    void CountInto(FoundCounts* found) { m_found = found; }
    // Places orphans and converts the tree into nodes under `top`; returns the "." node (null
    // when nothing could be built). The builder is empty afterwards.
    CNode* Finish(CNode* top);

private:
    bool Reserved(uint32_t recordId) const;
    // Places `e` under its parent folder, unless the folder at that record number is a later
    // one (sequence numbers differ): then under a placeholder of the vanished folder.
    void Place(ScanEntry* e);
    void MoveStrangers(ScanEntry* folder);
    ScanEntry* VanishedFolder(uint32_t recordId);

    ScanEntry* m_root = nullptr;
    FoundCounts* m_found = nullptr;
    CDirectoryIndex* m_index = nullptr;
    // Placeholders of folders whose record number now belongs to another record; they are not
    // indexed (the number is taken) and go to "Lost" at the end.
    std::map<uint32_t, ScanEntry*> m_vanished;
};

} // namespace kestrin
