#pragma once
// The thin platform layer: everything that differs between Windows and POSIX lives here, so the
// engines only see sector reads and system error codes.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace kestrin::platform {

// Windows system error codes the program reasons about; POSIX errno values are mapped onto them.
enum SysCode : uint32_t {
    kErrSuccess = 0,
    kErrPathNotFound = 3,
    kErrAccessDenied = 5,
    kErrNotReady = 21,
    kErrDeviceGone = 55,
    kErrFileExists = 80,
    kErrInvalidParameter = 87,
    kErrDiskFull = 112,
    kErrInvalidName = 123,
    kErrAlreadyExists = 183,
    kErrFilenameTooLong = 206,
};

// errno → system code. `forFolder` picks 183 over 80 for EEXIST, as folder creation reports it.
uint32_t SysCodeFromErrno(int err, bool forFolder = false);
// The operating system's own text for a code (strerror of the errno it came from on POSIX);
// "failed to retrieve system error" when there is none.
std::string SysErrorText(uint32_t code);

#ifdef _WIN32
using NativeHandle = void*;
#else
using NativeHandle = int;
#endif
NativeHandle InvalidHandle();

// A file or device opened by path. Reads and writes are positioned (no shared file pointer).
class File {
public:
    File() = default;
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    File(File&& o) noexcept;
    File& operator=(File&& o) noexcept;

    // Read-only. `direct` asks for unbuffered access (devices); when the system refuses it the
    // file is opened buffered instead, so alignment rules never make a source unreadable.
    bool OpenRead(const std::string& path, bool direct = false);
    // Create or truncate for writing (image files being created).
    bool OpenWrite(const std::string& path, bool exclusive);
    bool IsOpen() const;
    void Close();
    // Number of bytes read, or -1 with LastError() set. Short only at the end of the file.
    long long ReadAt(void* buf, size_t len, uint64_t offset);
    // The same for a thread reading beside others: nothing of this object changes, so no
    // failure code is kept (-1 on any failure; the caller asks ReadAt again for the code).
    long long ReadAtQuietly(void* buf, size_t len, uint64_t offset) const;
    long long WriteAt(const void* buf, size_t len, uint64_t offset);
    // Byte size of a regular file or block device; 0 when unknown.
    uint64_t Size() const;
    bool IsBlockDevice() const;
    bool IsRegularFile() const;
    // The first run of data at or after byte `offset` of a regular file, as [start, end): the
    // holes of a sparse file hold no data and read as zeros. {offset, UINT64_MAX} when the system
    // cannot tell (devices, file systems without hole reporting); start == UINT64_MAX when no
    // data follows `offset`.
    void DataRun(uint64_t offset, uint64_t& start, uint64_t& end) const;
    // Copies `len` bytes at `offset` of this file to the file `to` at `toOffset` inside the
    // kernel. Bytes copied (fewer only when the copy stopped early), or -1 with the errno in
    // `err`: EXDEV, EINVAL, ENOSYS, EOPNOTSUPP when the system cannot copy between these two
    // files, anything else when a read or a write failed.
    long long CopyTo(NativeHandle to, uint64_t toOffset, size_t len, uint64_t offset, int& err) const;
    // Logical sector size reported by a block device, 0 when unknown.
    uint32_t DeviceSectorSize() const;
    uint32_t LastError() const { return m_lastError.load(std::memory_order_relaxed); }
    const std::string& Path() const { return m_path; }

private:
    NativeHandle m_handle = InvalidHandle();
    std::string m_path;
    // Positioned reads may run on two threads at once; a failure on either records its code.
    std::atomic<uint32_t> m_lastError{0};
};

// Memory for large read buffers: page-aligned, zero-filled, in huge pages where the system has
// them (a buffer of tens of megabytes then costs a few page faults instead of thousands).
// Null when there is not that much memory. Freed with FreeLargeBuffer and the same size.
void* AllocateLargeBuffer(size_t bytes);
void FreeLargeBuffer(void* p, size_t bytes);

// Parent of the folder holding the running executable: the program folder.
std::string ProgramFolder();
// Folder for per-user runtime files (lock files); falls back to the temp folder.
std::string RuntimeFolder();
// True when this process may create files in `folder` (false for a missing folder).
bool FolderWritable(const std::string& folder);

// Single-instance guard: holds an exclusive lock on a file named after `name` while alive.
class InstanceLock {
public:
    // Returns kErrSuccess when this process now holds the lock, kErrAlreadyExists when another
    // instance does, any other code when the lock could not be made.
    uint32_t Acquire(const std::string& name);
    ~InstanceLock();

private:
    NativeHandle m_handle = InvalidHandle();
};

bool IsTerminal(int fd);

} // namespace kestrin::platform
