#pragma once
// A file that appears under its final name only when it is complete. It is written under a
// temporary name in the same folder (so the final rename never crosses file systems) and moved
// into place by Commit; anything else (an error, a cancel, an exception, the object going away)
// removes the temporary and leaves the final name as it was.
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/Platform.h"

namespace kestrin::platform {

class AtomicFile {
public:
    AtomicFile() = default;
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    // Creates the temporary beside `path`. With `replace` false, Commit refuses to replace a file
    // that exists under the final name by then (it may have appeared after the checks). False
    // with Error() set when the temporary cannot be made.
    bool Create(const std::string& path, bool replace);
    // Descriptor of the temporary, -1 when none is open.
    NativeHandle Handle() const { return m_fd; }
    const std::string& TempPath() const { return m_temp; }
    const std::string& FinalPath() const { return m_path; }

    // Appends; false (with Error() set) on any write error, a full disk included.
    bool Write(const void* data, size_t len);
    // Flushes to the device and renames into place. False with Error() set; the temporary is
    // removed then and a file already under the final name stays untouched.
    bool Commit();
    // Removes the temporary (nothing happens once committed).
    void Abort();

    // errno of the first failure (0 when none).
    int Error() const { return m_error; }

private:
    std::string m_path;
    std::string m_temp;
    NativeHandle m_fd = InvalidHandle();
    bool m_replace = false;
    int m_error = 0;
};

// Moves `from` to `to` unless `to` exists: a file that appeared since the checks is kept and the
// move fails with EEXIST in `error`. File systems without the no-replace rename get a hard link
// instead, and those without hard links (FAT through FUSE) a check right before the rename.
bool RenameNoReplace(const std::string& from, const std::string& to, int& error);

// A new empty file beside `path` with a temporary name (as AtomicFile makes them), for writers
// that need a path rather than a descriptor. Empty string with `error` set on failure.
std::string MakeTempBeside(const std::string& path, int& error);

// Writes `bytes` to `path` through an AtomicFile. errno of the failure in `error`.
bool WriteFileAtomically(const std::string& path, const void* data, size_t len, bool replace, int* error = nullptr);

} // namespace kestrin::platform
