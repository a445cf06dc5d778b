#pragma once
// Builds the scan-entry tree of an exFAT volume from its folders: every file entry set (file,
// stream extension, file name), in use or deleted, becomes a scan entry under its folder.
#include <cstdint>
#include <span>
#include <string>
#include <unordered_set>

#include "fs/CNode.h"
#include "fs/fat/CFatVolume.h"
#include "fs/fat/CFolderWalker.h"

namespace kestrin {

struct ScanContext;

class CExFatWalker final : public CFolderWalker {
public:
    // The volume root "." (recordId = the root-directory cluster) with "Lost". `ctx` may be null
    // (tests, fuzzing): then there is no progress and no stop.
    CExFatWalker(CFatVolume& volume, ScanContext* ctx);

    // Reads one folder's clusters (the FAT chain, or one contiguous run of `size` bytes for a
    // folder without the chain flag; the root always by its chain), parsing each in turn. An
    // entry set still incomplete after the folder's last cluster is lost.
    void ReadFolder(ScanEntry* folder) override;
    // Parses one cluster's entries; true when an impossible file entry ends the folder. An entry
    // set that does not complete inside the cluster goes on in the next cluster parsed, which
    // must be the next cluster of the same folder; ReadFolder starts every folder afresh.
    bool ParseEntries(std::span<const uint8_t> cluster, ScanEntry* folder);

private:
    // The entry set being gathered.
    struct EntrySet {
        bool open = false;
        uint32_t remaining = 0; // secondary entries still expected
        uint8_t flags = 0;
        uint16_t createdDate = 0, modifiedDate = 0;
        ItemTimes times;
        uint8_t nameLength = 0;
        uint64_t size = 0;
        uint64_t streamAt = 0; // absolute byte offset of the stream extension entry
        uint32_t firstCluster = 0;
        std::u16string name;
    };

    EntrySet m_set;
    uint64_t m_bufferAt = 0; // absolute byte offset of the buffer ParseEntries is given
    // Folders already read, by first cluster: each is read once, so entries pointing back at an
    // ancestor end there.
    std::unordered_set<uint32_t> m_read;
};

} // namespace kestrin
