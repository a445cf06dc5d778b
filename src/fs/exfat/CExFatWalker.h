#pragma once
// Builds the scan-entry tree of an exFAT volume from its folders: every file entry set (file,
// stream extension, file name), in use or deleted, becomes a scan entry under its folder.
#include <cstdint>
#include <span>
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
    // folder without the chain flag; the root always by its chain), parsing each in turn.
    void ReadFolder(ScanEntry* folder) override;
    // Parses one cluster's entries; true when an impossible file entry ends the folder. An entry
    // set that does not complete inside the cluster is lost.
    bool ParseEntries(std::span<const uint8_t> cluster, ScanEntry* folder);

private:
    // Folders already read, by first cluster: each is read once, so entries pointing back at an
    // ancestor end there.
    std::unordered_set<uint32_t> m_read;
};

} // namespace kestrin
