#pragma once
// Where a save writes to: a folder tree on disk or a zip archive. The walk asks for one object at
// a time by name; a target answers with the system's code for the refusal, so renaming and
// logging work the same for both.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "fs/Content.h"
#include "output/UserMessages.h"

namespace kestrin {

class CPhysicalDisk;
class CNode;
struct SaveResult;

#ifdef _WIN32
inline constexpr const char16_t* kPathSeparator = u"\\";
#else
inline constexpr const char16_t* kPathSeparator = u"/";
#endif

struct FileOutcome {
    bool complete = true;
    bool cancelled = false;
    int writeError = 0;       // errno of a failed write (the partial file is gone then)
    uint64_t unreadable = 0;  // bytes of the content that could not be read
};

// Called with each delivered run of content bytes; false stops the copy (a cancel).
using AdvanceFn = std::function<bool(uint64_t len)>;

// A file made by CreateFile and handed out of the target (DetachFile), to be written while the
// walk goes on making the next ones.
struct DetachedFile {
    int file = -1;    // the new file, open for writing
    int folder = -1;  // its folder, open until the walk leaves it
    std::string name; // its name in that folder
};

class COutputTarget {
public:
    virtual ~COutputTarget() = default;
    // 0, or the system code why the destination cannot be written.
    virtual uint32_t Open() = 0;
    // 0 when the folder was made; it is then the current folder until LeaveFolder.
    virtual uint32_t CreateFolder(const std::u16string& name) = 0;
    virtual void LeaveFolder() = 0;
    // 0 when a new file of that name was made in the current folder; WriteFile fills it.
    virtual uint32_t CreateFile(const std::u16string& name) = 0;
    virtual FileOutcome WriteFile(CPhysicalDisk& media, const CNode& node, ContentWriter content,
                                  const AdvanceFn& advance) = 0;
    // Hands the file made by the last CreateFile out, to be written by WriteDetached on another
    // thread; false when this target writes one file at a time (WriteFile then writes it). Its
    // folder stays open until LeaveFolder: the walk finishes every detached file before that.
    virtual bool DetachFile(DetachedFile&) { return false; }
    // WriteFile for a detached file: closes it, and removes it when it was cut short. Safe beside
    // the walk's own calls and beside another WriteDetached of another file.
    virtual FileOutcome WriteDetached(DetachedFile&, CPhysicalDisk&, const CNode&, ContentWriter, const AdvanceFn&) {
        return {false, true};
    }
    // Closes and removes a detached file that is not to be written (the save was stopped).
    virtual void DiscardDetached(DetachedFile&) {}
    // Removes a regular file of that name from the current folder, nothing else.
    virtual void RemoveRegularFile(const std::u16string& name) = 0;
    // Path of the current folder, for the log.
    virtual std::string CurrentFolder() const = 0;
    // The log at the destination's root: "log.txt", or "log (2).txt", ... when that name is
    // taken (an existing file is never truncated).
    virtual bool OpenLog() = 0;
    virtual void WriteLog(const std::u16string& text) = 0;
    virtual void Finish(SaveResult& result) = 0;
};

// 123 for names no folder can hold under any spelling: empty, ".", "..", or holding "/" or NUL,
// and for names holding control characters (C0, DEL, C1) or direction overrides, which would
// reach a terminal or a file manager raw: such items are saved under counter names instead.
uint32_t CheckOutputName(const std::u16string& name);
// C0 and C1 controls, DEL, and the characters that reorder text on screen.
bool IsControlOrOverride(char16_t c);

// How a folder target writes content bytes: returns bytes written or -1 with errno set, like
// write(2). Tests pass one that fails on purpose (a full disk).
using WriteFn = long (*)(int fd, const void* data, size_t len);
std::unique_ptr<COutputTarget> MakeFolderTarget(const std::string& root, WriteFn write = nullptr);
// An existing file at `path` is replaced only with `replace`; the archive appears when complete.
std::unique_ptr<COutputTarget> MakeZipTarget(const std::string& path, IUserMessages& messages, bool replace = false);

// Midnight local time of an MS-DOS date; false for 0 or an impossible date.
bool LocalTimeOfDosDate(uint16_t dosDate, int64_t& seconds);
// The node's date for the saved file: the modified column's date, else the creation date.
inline uint16_t SaveDateOf(uint16_t modifiedDate, uint16_t createdDate) { return modifiedDate ? modifiedDate : createdDate; }

} // namespace kestrin
