#pragma once
// The rules that turn a recovery mode and a source into an operation: which kind runs, which
// status line it shows, and the stages it runs in order.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "job/ScanOperation.h"
#include "storage/CPhysicalDisk.h"

namespace kestrin {

// 1019-1022, 1037, 1038.
bool IsKnownMode(uint32_t mode);
// The lost-data modes: 1020 to 1022, 1037 and 1038; 1019 is not one.
bool IsLostDataMode(RecoveryMode mode);
bool IsPhotoMode(RecoveryMode mode);

// Operation kind for a scan of a source of `sourceKind` (1-6) in `mode`. A pending image creation
// keeps OperationKind::CreateImage whatever the source. None for a source kind that no scan is defined for.
std::optional<OperationKind> ChooseOperationKind(RecoveryMode mode, SourceKind sourceKind, bool imageCreationPending = false);
// Deleted-only: a source confirmed in RecoveryMode::DeletedFiles skips the follow-on signature scan.
bool DeletedOnlyFor(RecoveryMode mode);

// Identifier of the status line of `kind`; `toDisc` picks the optical variant of saving.
std::string StatusTextId(OperationKind kind, RecoveryMode mode, SourceKind sourceKind, bool toDisc = false);
// The two detail rows every kind shows: an empty first row and this identifier as the second.
inline constexpr const char* kDetailRowTwoId = "IDS_THIS_MIGHT_FEW_MIN";

enum class Stage {
    FileSystemScan,
    SignatureScan,
    PhotoPruning,
    Preparation,
    DiskRecordSearch,
    SecondFileSystemScan,
    SaveToFolder,
    BurnToDisc,
    CreateImage,
};

// The stages `kind` runs, in order, before any run-time condition (deleted-only, a stop) drops
// one; OperationKind::Save lists the destination kind's stage (0 folder or zip, 1 disc, other: none).
std::vector<Stage> StagesOf(OperationKind kind, RecoveryMode mode, uint32_t destinationKind = 0);
// Identifier of a stage's name, used where a stage cannot run in this build.
const char* StageNameId(Stage s);
// The English name, for a language file that lacks the identifier.
const char* StageNameEnglish(Stage s);

} // namespace kestrin
