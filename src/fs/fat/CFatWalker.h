#pragma once
// Builds the scan-entry tree of a FAT12, FAT16 or FAT32 volume from its folders: every 32-byte
// entry, in use or deleted (first byte 0xE5), becomes a scan entry under its folder.
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "fs/CNode.h"
#include "fs/fat/CFatVolume.h"
#include "fs/fat/CFolderWalker.h"

namespace kestrin {

struct ScanContext;

// How a folder's entries are taken.
enum FatWalkMode : int {
    // A folder found as a bare cluster (the formatted-volume search): its "." and ".." entries
    // are skipped without comparing them with the folder entry, whose numbers and date came from
    // the search rather than from a parent folder. Every entry is kept, as in the full walk.
    kFatWalkBare = 0,
    // Deleted items only, merged into a tree that may already hold them: files in use are
    // dropped; a folder that matches an existing deleted child folder (same first cluster)
    // refreshes that child instead of being added twice.
    kFatWalkDeletedOnly = 1,
    // The normal scan: every entry, in use or deleted, with the "." and ".." identity checks.
    kFatWalkFull = 2,
};

class CFatWalker final : public CFolderWalker {
public:
    // Makes the volume root "." with "Lost" and registers it in the folder index. `ctx` may be
    // null (tests, fuzzing): then there is no progress and no stop.
    CFatWalker(CFatVolume& volume, int mode, ScanContext* ctx);

    ScanEntry* TakeRoot() override;

    // Reads one folder's entries into its children: the FAT12/16 root region, or the folder's
    // cluster chain one cluster at a time until its end.
    void ReadFolder(ScanEntry* folder) override;
    // Parses one buffer of 32-byte entries of `folder`; true when the folder ends in it. A long
    // name gathered at the end of one buffer carries over to the next buffer of the same folder.
    bool ParseEntries(std::span<const uint8_t> buffer, ScanEntry* folder);

    // The folder registered under a first cluster, or null.
    ScanEntry* FindFolder(uint32_t recordId) const;
    // Gives the clusters of the folder starting at `first`, read instead of its FAT chain (the
    // formatted-volume search, where the old chains are gone and the clusters were inferred).
    // A `headless` folder is a run of folder clusters whose first cluster is lost: it has no "."
    // and ".." entries to check. Lists longer than the folder size limit are cut.
    void SetFolderClusters(uint32_t first, std::vector<uint32_t> clusters, bool headless);

private:
    void AddEntry(ScanEntry* folder, ScanEntry* entry);

    struct GivenFolder {
        std::vector<uint32_t> clusters;
        bool headless = false;
    };

    int m_mode;
    uint32_t m_code; // 1 FAT12/16, 2 FAT32: also the root's number
    // Folders already read, keyed by first cluster: a folder is read once, so a folder entry
    // pointing back at an ancestor (or anywhere already read) ends there.
    std::map<uint32_t, ScanEntry*> m_index;
    std::map<uint32_t, GivenFolder> m_given;
    std::u16string m_longName;
};

// The number of a FAT volume's root folder: 1 on FAT12/16 (the fixed root region), 2 on FAT32.
uint32_t FatRootId(const FatGeometry& g);

// How a cluster without "." and ".." reads as part of a folder: not at all (kNone), as folder
// entries ending inside it (kEnds), or as folder entries filling it to the end, so that the folder
// goes on in another cluster (kFull). Every entry before the end mark must be a well-formed
// long-name piece or short entry (legal 8.3 characters, known attribute and case bits, a cluster
// not above `highestCluster`, size 0 on folders), at least one short entry must be there, and
// everything after the end mark must be zero, as a folder's unused space is. File data almost
// never passes: text has letters where the attributes byte lies, binary data fails the names.
enum class FatFolderShape { kNone, kEnds, kFull };
FatFolderShape FatFolderClusterShape(std::span<const uint8_t> cluster, uint32_t highestCluster);

} // namespace kestrin
