#pragma once
// Builds the scan-entry tree of an exFAT volume from its folders: every file entry set (file,
// stream extension, file name), in use or deleted, becomes a scan entry under its folder.
#include <cstdint>
#include <span>
#include <unordered_set>

#include "fs/CNode.h"
#include "fs/fat/CFatVolume.h"

namespace kestrin {

struct ScanContext;

class CExFatWalker {
public:
    // `ctx` may be null (tests, fuzzing): then there is no progress and no stop.
    CExFatWalker(CFatVolume& volume, ScanContext* ctx);
    ~CExFatWalker();
    CExFatWalker(const CExFatWalker&) = delete;
    CExFatWalker& operator=(const CExFatWalker&) = delete;

    // The volume root "." (recordId = the root-directory cluster) with "Lost".
    ScanEntry* Root() { return m_root; }
    ScanEntry* TakeRoot();

    // Reads `folder` and, depth first, every folder below it. A stop request (state 4) found
    // before a folder is turned into state 1 and ends the walk; state 1 found before a child
    // folder ends it too. True when the walk ended early.
    bool ReadFolderTree(ScanEntry* folder);
    // Reads one folder's clusters (the FAT chain, or one contiguous run of `size` bytes for a
    // folder without the chain flag; the root always by its chain), parsing each in turn.
    void ReadFolder(ScanEntry* folder);
    // Parses one cluster's entries; true when an impossible file entry ends the folder. An entry
    // set that does not complete inside the cluster is lost.
    bool ParseEntries(std::span<const uint8_t> cluster, ScanEntry* folder);

    uint64_t EntriesMade() const { return m_made; }

private:
    bool StopBeforeFolder();

    CFatVolume& m_vol;
    ScanContext* m_ctx;
    ScanEntry* m_root = nullptr;
    // Folders already read, by first cluster: each is read once, so entries pointing back at an
    // ancestor end there.
    std::unordered_set<uint32_t> m_read;
    uint64_t m_made = 0, m_visited = 0;
};

} // namespace kestrin
