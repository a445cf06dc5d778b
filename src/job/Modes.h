#pragma once
// The six recovery modes, once: their ids (kept in session files and language files), the name
// the command line takes, the texts the desktop program shows and the group of its mode tabs.
#include <cstdint>
#include <span>
#include <string_view>

#include "job/ScanOperation.h"

namespace kestrin {

struct ModeInfo {
    RecoveryMode mode;
    const char* cliName;   // "deleted-files"
    const char* labelId;   // the mode button's label
    const char* textId;    // the mode button's explanation
    const char* titleId;   // the heading of the drive page, also the session file's mode name
    int tab;               // 0 files, 1 partitions, 2 photos
};

inline constexpr ModeInfo kModeTable[] = {
    {RecoveryMode::DeletedFiles, "deleted-files", "IDS_RECOVERDELETEDFILES", "IDS_RECOVERDELETEDFILESTEXT",
     "IDS_RECOVER_DELETED_FILES", 0},
    {RecoveryMode::LostFiles, "lost-files", "IDS_RECOVERLOSTFILES", "IDS_RECOVERLOSTFILESTEXT", "IDS_RECOVER_LOST_FILES", 0},
    {RecoveryMode::Partition, "partition", "IDS_PARTITIONRECOVER", "IDS_PARTITIONRECOVERTEXT", "IDS_PARTITION_RECOVERY", 1},
    {RecoveryMode::Formatted, "formatted", "IDS_FORMATTEDRECOVER", "IDS_FORMATTEDRECOVERTEXT",
     "IDS_FORMATTED_REFORMATTED_RECOVERY", 1},
    {RecoveryMode::DeletedPhotos, "deleted-photos", "IDS_RECOVERDELETEDPHOTOS", "IDS_RECOVERDELETEDPHOTOSTEXT",
     "IDS_RECOVER_DELETED_PHOTOS", 2},
    {RecoveryMode::LostPhotos, "lost-photos", "IDS_RECOVERLOSTPHOTOS", "IDS_RECOVERLOSTPHOTOSTEXT", "IDS_RECOVER_LOST_PHOTOS",
     2},
};

// The entry of `mode`, or null for a number that is no mode.
constexpr const ModeInfo* FindMode(RecoveryMode mode) {
    for (const ModeInfo& m : kModeTable)
        if (m.mode == mode) return &m;
    return nullptr;
}

} // namespace kestrin
