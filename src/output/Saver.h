#pragma once
// Saving found items: the destination checks, the walk over the ticked part of the tree that
// re-creates folders and files under the destination (or inside a zip archive), the renaming of
// names the destination refuses, and "log.txt" for what could not be written under any name.
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "fs/CNode.h"
#include "fs/Content.h"
#include "output/ContentCopy.h"
#include "output/UserMessages.h"
#include "job/ScanContext.h"
#include "storage/CPhysicalDisk.h"

namespace kestrin {

// What happens when the destination refuses a name.
enum CollisionMode : uint8_t {
    kCollisionAsk = 1,            // the rename question
    kCollisionRename = 2,         // counter names: "0.jpg", "1.jpg", ... "996_photo.jpg", ...
    kCollisionRenameByNumber = 3, // the item's own number first ("1234.jpg"), then the counter
    kCollisionSkipOnce = 4,       // skip this item, ask again for the next one
    kCollisionSkip = 7,           // skip every refused item
};

// Files of this size or more are refused on FAT destinations: 1,024 bytes below the 4 GiB limit.
inline constexpr uint64_t kFatFileLimit = 0xFFFFFC00ull;
// Longest output name, as the shared name buffer holds it (259 units and a terminator).
inline constexpr size_t kOutputNameUnits = 259;
// Counter renaming: plain counters up to 995, then counter, "_" and the name, given up after 1,995.
inline constexpr uint32_t kPlainCounterLast = 995;
inline constexpr uint32_t kCounterLast = 1995;

// The rename question: shows `name` and the system code that refused it. Returns false when the
// user skips the item; otherwise `name` holds the name to try. The answer may change `mode`
// (skip this one: 4, skip all: 7, rename automatically: 2 or 3).
using RenameQuestion = std::function<bool(std::u16string& name, uint32_t errorCode, uint8_t& mode)>;

struct SaveRequest {
    // A folder, or a path ending in ".zip" for a zip archive.
    std::string destination;
    uint8_t collisionMode = kCollisionRename;
    // Only items marked for the deleted-files view.
    bool deletedOnly = false;
    // The folder whose children are saved; null means the tree's top.
    const CNode* start = nullptr;
    ContentWriter content = &WriteNodeContent;
    RenameQuestion askRename;
    IUserMessages* messages = nullptr;
    // Whether the 4 GiB rule applies; unset: from the destination's file system.
    std::optional<bool> destinationIsFat;
    // A zip archive may replace an existing file of its name (the user agreed); never the source.
    bool replaceExisting = false;
};

struct SaveResult {
    bool started = false;
    bool cancelled = false;
    bool archiveFailed = false;  // the zip archive could not be completed
    uint64_t folders = 0, files = 0, bytes = 0;
    uint64_t skipped = 0;        // items not created (skip modes, refusals other than names)
    uint64_t logged = 0;         // names written to log.txt
    uint64_t refusedFat = 0;     // files over the FAT limit
    uint64_t incomplete = 0;     // files written with unreadable or missing parts
    uint64_t unreadableBytes = 0; // bytes of those files that could not be read
    uint64_t writeErrors = 0;    // files (or folders) that could not be written; partial files removed
    bool diskFull = false;       // one of those failed because the destination is full
    std::string writeErrorText;  // the system's text of the first write error
    std::string logPath;         // empty when nothing was logged
};

// True when `path` ends in ".zip" (any case): the destination is an archive.
bool IsZipDestination(const std::string& path);
// True when the folder lies on a FAT file system (vfat, msdos; exFAT is not FAT here).
bool IsFatFolder(const std::string& folder);
// True when `folder` lies on the source: the image file's own file system, the source device,
// or a partition of the source disk.
bool DestinationOnSource(const std::string& folder, const CPhysicalDisk& source);

// The checks made before a save starts, in order: free space for the ticked size, the source's
// own drive, the source disk's volumes. Shows the refusal and returns false when one fails.
bool CheckDestination(const CPhysicalDisk& source, const CNode* top, const SaveRequest& request,
                      IUserMessages& messages);

// Walks the ticked items below request.start (or ctx.top) and writes them to the destination.
// Progress goes through ctx.Progress (bytes), a stop request ends the walk between items.
SaveResult SaveMarked(CPhysicalDisk& media, ScanContext& ctx, const SaveRequest& request);

class COutputTarget;
// The same walk into a target already made (tests use targets that refuse on purpose).
SaveResult SaveInto(COutputTarget& target, CPhysicalDisk& media, ScanContext& ctx, const SaveRequest& request);

// The driver's view of a save: stopped, anything not saved as found, or ok.
Outcome OutcomeOf(const SaveResult& r);

} // namespace kestrin
