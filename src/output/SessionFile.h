#pragma once
// Recovery session files (.tks4): the mode, the source description, the whole found-item tree and
// the drive lists, so that a finished scan can be browsed and saved again without rescanning.
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fs/CNode.h"
#include "output/SessionLayout.h"
#include "job/ScanOperation.h"
#include "output/UserMessages.h"
#include "storage/CPhysicalDisk.h"
#include "storage/PartitionRecord.h"

namespace kestrin {

class ByteSource;

// One row of a drive list as the drive-selection page keeps it (layout::session::drive_item). Its
// kind is a SourceKind; rows of SourceKind::ImageFile are not stored in a session.
struct DriveListItem {
    std::array<uint8_t, layout::session::drive_item::kBytes> raw{};
    std::optional<PartitionRecord> partition;

    SourceKind Kind() const { return static_cast<SourceKind>(layout::session::drive_item::Kind::At(raw.data())); }
    void SetKind(SourceKind kind) { layout::session::drive_item::Kind::Put(raw.data(), static_cast<uint16_t>(kind)); }
};

// Rows for the media's partition lists (the placeholder head of the first list is left out):
// the start sector, the kind, the list index and the volume name ("NTFS - 2").
std::vector<DriveListItem> DriveListFromPartitions(const std::vector<PartitionRecord>& partitions, bool skipHead,
                                                   SourceKind kind);

// What WriteSession stores. `media` null: no source is open (header and lists only).
struct SessionView {
    RecoveryMode mode = RecoveryMode::DeletedFiles;
    const CPhysicalDisk* media = nullptr;
    const CNode* top = nullptr;
    const std::vector<DriveListItem>* driveList = nullptr;
    const std::vector<DriveListItem>* secondList = nullptr;
};

// Writes the session to `path`: under a temporary name first, moved into place when complete.
// An existing file there is replaced only with `replace` (the caller asked the user); the
// source itself never is. Returns 1 on success, 0 after the failure was reported through
// `messages`.
int WriteSession(const std::string& path, const SessionView& session, IUserMessages& messages, bool replace = false);

// A finished scan as the command line has it: the drive lists are the media's partition lists.
int WriteScanSession(const std::string& path, RecoveryMode mode, const CPhysicalDisk& media, const CNode* top,
                     IUserMessages& messages, bool replace = false);

struct ReadSessionOptions {
    // False when the user opened the file from inside a running scan: a session made in another
    // mode is then refused with an explanation.
    bool requestedFromOutside = true;
    RecoveryMode currentMode = RecoveryMode::DeletedFiles;
    // Re-open the stored source by its path (the normal case). Off for listing a session whose
    // source is gone, and for fuzzing.
    bool openSource = true;
    // Asked for the image file's new place when the one the session was made from cannot be
    // opened where it was (moved or renamed); an empty answer leaves the session unopened.
    std::function<std::string(const std::string& missingPath)> locateImage;
};

struct SessionData {
    RecoveryMode mode = RecoveryMode::DeletedFiles;
    // The re-opened source with its stored range and partition; null when the session had none.
    std::unique_ptr<CPhysicalDisk> media;
    // "_R" with the stored tree below it (an empty top when the session had no source).
    std::unique_ptr<CNode> top;
    std::optional<std::vector<DriveListItem>> driveList;
    std::optional<std::vector<DriveListItem>> secondList;
    std::u16string sourcePath;
};

// Reads a session file. False after a failure was reported (mode mismatch, source gone, corrupt
// content); `out` is then left empty.
bool ReadSession(const std::string& path, const ReadSessionOptions& options, SessionData& out,
                 IUserMessages& messages);
// The same over bytes already open (fuzzing, tests).
bool ReadSessionFrom(ByteSource& bytes, const ReadSessionOptions& options, SessionData& out,
                     IUserMessages& messages);

} // namespace kestrin
