#pragma once
// Which file or device a path names, so that an output can be told apart from the source it must
// never touch: the same file under another name (a symbolic or hard link, /proc/self/fd/N), the
// source device, a partition of the source disk, or a file system living on one of those.
#include <cstdint>
#include <string>

namespace kestrin::platform {

struct FileIdentity {
    bool valid = false;
    uint64_t device = 0;     // device of the file system holding the file
    uint64_t inode = 0;
    bool blockDevice = false;
    uint64_t rdev = 0;       // the device a block-device node stands for
};

// Identity of what `path` names after following symbolic links; invalid when it does not exist.
FileIdentity IdentityOf(const std::string& path);
bool SameFile(const FileIdentity& a, const FileIdentity& b);

// Device number of the file system that holds `path`, or would hold it once created: the nearest
// existing folder on the way up is asked. False when not even "/" answers.
bool FileSystemDeviceOf(const std::string& path, uint64_t& device);

// True when block devices `a` and `b` are the same, or one is a partition of the other.
bool SameDiskOrPartition(uint64_t a, uint64_t b);

// True when the folder part of `path` exists and is a folder ("" and "name" mean the current one).
bool ParentFolderExists(const std::string& path);

// The operating system's own text for an errno value.
std::string ErrnoText(int err);

} // namespace kestrin::platform
