#include "platform/Platform.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#ifdef _WIN32
#include <windows.h>
#include <io.h>
#else
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace kestrin::platform {

uint32_t SysCodeFromErrno(int err, bool forFolder) {
    switch (err) {
    case 0: return kErrSuccess;
    case ENOENT:
    case ENOTDIR: return kErrPathNotFound;
    case EACCES:
    case EPERM:
    case EROFS: return kErrAccessDenied;
    case ENODEV:
    case ENXIO:
#ifdef ENOMEDIUM
    case ENOMEDIUM:
#endif
        return kErrDeviceGone;
    case EEXIST: return forFolder ? kErrAlreadyExists : kErrFileExists;
    case EINVAL: return kErrInvalidParameter;
    case EILSEQ: return kErrInvalidName;
    case ENAMETOOLONG: return kErrFilenameTooLong;
    case ENOSPC: return kErrDiskFull;
    case EIO: return 23; // data error (cyclic redundancy check)
    default: return 31;   // a device attached to the system is not functioning
    }
}

#ifndef _WIN32
// The errno a system code was mapped from, so that messages carry the system's own wording.
static int ErrnoOfCode(uint32_t code) {
    switch (code) {
    case kErrSuccess: return 0;
    case kErrPathNotFound: return ENOENT;
    case kErrAccessDenied: return EACCES;
#ifdef ENOMEDIUM
    case kErrNotReady: return ENOMEDIUM;
#endif
    case 23: return EIO;
    case 31: return EIO;
    case kErrDeviceGone: return ENODEV;
    case kErrFileExists:
    case kErrAlreadyExists: return EEXIST;
    case kErrInvalidParameter: return EINVAL;
    case kErrDiskFull: return ENOSPC;
    case kErrInvalidName: return EILSEQ;
    case kErrFilenameTooLong: return ENAMETOOLONG;
    default: return -1;
    }
}
#endif

std::string SysErrorText(uint32_t code) {
#ifdef _WIN32
    wchar_t* buf = nullptr;
    DWORD n = FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                             nullptr, code, 0, reinterpret_cast<wchar_t*>(&buf), 0, nullptr);
    std::string out;
    if (n && buf) {
        int len = WideCharToMultiByte(CP_UTF8, 0, buf, int(n), nullptr, 0, nullptr, nullptr);
        out.assign(size_t(len), '\0');
        WideCharToMultiByte(CP_UTF8, 0, buf, int(n), out.data(), len, nullptr, nullptr);
        while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
    }
    LocalFree(buf);
    return out.empty() ? "failed to retrieve system error" : out;
#else
    int err = ErrnoOfCode(code);
    if (err < 0) return "failed to retrieve system error";
    return std::strerror(err);
#endif
}

void* AllocateLargeBuffer(size_t bytes) {
#ifdef _WIN32
    return bytes ? VirtualAlloc(nullptr, bytes, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE) : nullptr;
#else
    if (bytes == 0) return nullptr;
    void* p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) return nullptr;
#ifdef MADV_HUGEPAGE
    madvise(p, bytes, MADV_HUGEPAGE);
#endif
    return p;
#endif
}

void FreeLargeBuffer(void* p, size_t bytes) {
    if (!p) return;
#ifdef _WIN32
    (void)bytes;
    VirtualFree(p, 0, MEM_RELEASE);
#else
    munmap(p, bytes);
#endif
}

#ifdef _WIN32
NativeHandle InvalidHandle() { return INVALID_HANDLE_VALUE; }
#else
NativeHandle InvalidHandle() { return -1; }
#endif

File::~File() { Close(); }
File::File(File&& o) noexcept : m_handle(o.m_handle), m_path(std::move(o.m_path)), m_lastError(o.m_lastError.load()) {
    o.m_handle = InvalidHandle();
}
File& File::operator=(File&& o) noexcept {
    if (this != &o) {
        Close();
        m_handle = o.m_handle;
        m_path = std::move(o.m_path);
        m_lastError = o.m_lastError.load();
        o.m_handle = InvalidHandle();
    }
    return *this;
}
bool File::IsOpen() const { return m_handle != InvalidHandle(); }

#ifdef _WIN32

static std::wstring Wide(const std::string& s) {
    int n = MultiByteToWideChar(CP_UTF8, 0, s.c_str(), -1, nullptr, 0);
    std::wstring w(n > 0 ? n - 1 : 0, L'\0');
    if (n > 1) MultiByteToWideChar(CP_UTF8, 0, s.c_str(), -1, w.data(), n);
    return w;
}

bool File::OpenRead(const std::string& path, bool direct) {
    Close();
    m_path = path;
    DWORD flags = direct ? FILE_FLAG_NO_BUFFERING : FILE_ATTRIBUTE_NORMAL;
    m_handle = CreateFileW(Wide(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                           OPEN_EXISTING, flags, nullptr);
    if (m_handle == INVALID_HANDLE_VALUE && direct)
        m_handle = CreateFileW(Wide(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                               OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    m_lastError = IsOpen() ? 0 : GetLastError();
    return IsOpen();
}
bool File::OpenWrite(const std::string& path, bool exclusive) {
    Close();
    m_path = path;
    m_handle = CreateFileW(Wide(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                           exclusive ? CREATE_NEW : CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    m_lastError = IsOpen() ? 0 : GetLastError();
    return IsOpen();
}
void File::Close() {
    if (IsOpen()) CloseHandle(m_handle);
    m_handle = InvalidHandle();
}
long long File::ReadAt(void* buf, size_t len, uint64_t offset) {
    OVERLAPPED ov{};
    ov.Offset = DWORD(offset);
    ov.OffsetHigh = DWORD(offset >> 32);
    DWORD got = 0;
    if (!ReadFile(m_handle, buf, DWORD(len), &got, &ov)) {
        m_lastError = GetLastError();
        if (m_lastError == ERROR_HANDLE_EOF) return 0;
        return -1;
    }
    return got;
}
long long File::ReadAtQuietly(void* buf, size_t len, uint64_t offset) const {
    OVERLAPPED ov{};
    ov.Offset = DWORD(offset);
    ov.OffsetHigh = DWORD(offset >> 32);
    DWORD got = 0;
    if (!ReadFile(m_handle, buf, DWORD(len), &got, &ov)) return GetLastError() == ERROR_HANDLE_EOF ? 0 : -1;
    return got;
}
long long File::WriteAt(const void* buf, size_t len, uint64_t offset) {
    OVERLAPPED ov{};
    ov.Offset = DWORD(offset);
    ov.OffsetHigh = DWORD(offset >> 32);
    DWORD put = 0;
    if (!WriteFile(m_handle, buf, DWORD(len), &put, &ov)) {
        m_lastError = GetLastError();
        return -1;
    }
    return put;
}
uint64_t File::Size() const {
    LARGE_INTEGER li;
    if (GetFileSizeEx(m_handle, &li)) return uint64_t(li.QuadPart);
    return 0;
}
bool File::IsBlockDevice() const { return GetFileType(m_handle) != FILE_TYPE_DISK ? false : Size() == 0; }
bool File::IsRegularFile() const { return GetFileType(m_handle) == FILE_TYPE_DISK && !IsBlockDevice(); }
uint32_t File::DeviceSectorSize() const { return 0; }
void File::DataRun(uint64_t offset, uint64_t& start, uint64_t& end) const {
    start = offset;
    end = UINT64_MAX;
}
long long File::CopyTo(NativeHandle, uint64_t, size_t, uint64_t, int& err) const {
    err = ENOSYS;
    return -1;
}

std::string ProgramFolder() {
    wchar_t buf[MAX_PATH];
    DWORD n = GetModuleFileNameW(nullptr, buf, MAX_PATH);
    std::wstring p(buf, n);
    for (int i = 0; i < 2; ++i) {
        auto cut = p.find_last_of(L"\\/");
        if (cut == std::wstring::npos) break;
        p.resize(cut);
    }
    int len = WideCharToMultiByte(CP_UTF8, 0, p.c_str(), int(p.size()), nullptr, 0, nullptr, nullptr);
    std::string out(len, '\0');
    WideCharToMultiByte(CP_UTF8, 0, p.c_str(), int(p.size()), out.data(), len, nullptr, nullptr);
    return out;
}
std::string RuntimeFolder() {
    wchar_t buf[MAX_PATH];
    DWORD n = GetTempPathW(MAX_PATH, buf);
    std::wstring p(buf, n);
    int len = WideCharToMultiByte(CP_UTF8, 0, p.c_str(), int(p.size()), nullptr, 0, nullptr, nullptr);
    std::string out(len, '\0');
    WideCharToMultiByte(CP_UTF8, 0, p.c_str(), int(p.size()), out.data(), len, nullptr, nullptr);
    return out;
}
bool FolderWritable(const std::string& folder) {
    DWORD attributes = GetFileAttributesW(Wide(folder).c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) &&
           !(attributes & FILE_ATTRIBUTE_READONLY);
}
uint32_t InstanceLock::Acquire(const std::string& name) {
    m_handle = CreateMutexW(nullptr, TRUE, Wide(name).c_str());
    DWORD err = GetLastError();
    if (!m_handle) return err ? err : 31;
    return err;
}
InstanceLock::~InstanceLock() {
    if (m_handle && m_handle != InvalidHandle()) CloseHandle(m_handle);
}
bool IsTerminal(int fd) { return _isatty(fd) != 0; }

#else

bool File::OpenRead(const std::string& path, bool direct) {
    Close();
    m_path = path;
    int flags = O_RDONLY | O_CLOEXEC;
#ifdef O_DIRECT
    if (direct) {
        m_handle = ::open(path.c_str(), flags | O_DIRECT);
        if (m_handle >= 0) {
            m_lastError = 0;
            return true;
        }
    }
#else
    (void)direct;
#endif
    m_handle = ::open(path.c_str(), flags);
    m_lastError = m_handle >= 0 ? 0 : SysCodeFromErrno(errno);
    return m_handle >= 0;
}

bool File::OpenWrite(const std::string& path, bool exclusive) {
    Close();
    m_path = path;
    int flags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | (exclusive ? O_EXCL : O_TRUNC);
    m_handle = ::open(path.c_str(), flags, 0644);
    m_lastError = m_handle >= 0 ? 0 : SysCodeFromErrno(errno);
    return m_handle >= 0;
}

void File::Close() {
    if (m_handle >= 0) ::close(m_handle);
    m_handle = -1;
}

namespace {
// Reads until `len` bytes, the end of the file or a failure (its errno in `err`, else 0).
size_t ReadFully(int fd, void* buf, size_t len, uint64_t offset, int& err) {
    size_t got = 0;
    auto* p = static_cast<uint8_t*>(buf);
    err = 0;
    while (got < len) {
        ssize_t n = ::pread(fd, p + got, len - got, off_t(offset + got));
        if (n < 0) {
            if (errno == EINTR) continue;
            err = errno;
            break;
        }
        if (n == 0) break;
        got += size_t(n);
    }
    return got;
}
} // namespace

long long File::ReadAt(void* buf, size_t len, uint64_t offset) {
    int err;
    size_t got = ReadFully(m_handle, buf, len, offset, err);
    if (err) {
        m_lastError = SysCodeFromErrno(err);
        return got ? (long long)got : -1;
    }
    return (long long)got;
}

long long File::ReadAtQuietly(void* buf, size_t len, uint64_t offset) const {
    int err;
    size_t got = ReadFully(m_handle, buf, len, offset, err);
    return err ? -1 : (long long)got;
}

long long File::WriteAt(const void* buf, size_t len, uint64_t offset) {
    size_t put = 0;
    auto* p = static_cast<const uint8_t*>(buf);
    while (put < len) {
        ssize_t n = ::pwrite(m_handle, p + put, len - put, off_t(offset + put));
        if (n < 0) {
            if (errno == EINTR) continue;
            m_lastError = SysCodeFromErrno(errno);
            return -1;
        }
        put += size_t(n);
    }
    return (long long)put;
}

uint64_t File::Size() const {
    struct stat st;
    if (m_handle < 0 || fstat(m_handle, &st) != 0) return 0;
    if (S_ISBLK(st.st_mode)) {
        uint64_t bytes = 0;
        if (ioctl(m_handle, BLKGETSIZE64, &bytes) == 0) return bytes;
        return 0;
    }
    return S_ISREG(st.st_mode) ? uint64_t(st.st_size) : 0;
}

bool File::IsBlockDevice() const {
    struct stat st;
    return m_handle >= 0 && fstat(m_handle, &st) == 0 && S_ISBLK(st.st_mode);
}

bool File::IsRegularFile() const {
    struct stat st;
    return m_handle >= 0 && fstat(m_handle, &st) == 0 && S_ISREG(st.st_mode);
}

void File::DataRun(uint64_t offset, uint64_t& start, uint64_t& end) const {
    start = offset;
    end = UINT64_MAX;
#if defined(SEEK_DATA) && defined(SEEK_HOLE)
    if (offset > uint64_t(INT64_MAX) || !IsRegularFile()) return;
    // Positioned reads never use the file position, so moving it here disturbs nothing.
    off_t data = ::lseek(m_handle, off_t(offset), SEEK_DATA);
    if (data < 0) {
        // ENXIO: nothing but a hole from `offset` to the end (or `offset` is past it). Anything
        // else: the file system does not say, so everything counts as data.
        if (errno == ENXIO) start = end = UINT64_MAX;
        return;
    }
    off_t hole = ::lseek(m_handle, data, SEEK_HOLE);
    start = uint64_t(data);
    if (hole >= data) end = uint64_t(hole);
#endif
}

long long File::CopyTo(NativeHandle to, uint64_t toOffset, size_t len, uint64_t offset, int& err) const {
    err = 0;
#ifdef __linux__
    size_t done = 0;
    while (done < len) {
        loff_t in = loff_t(offset + done), out = loff_t(toOffset + done);
        ssize_t n = ::copy_file_range(m_handle, &in, to, &out, len - done, 0);
        if (n < 0) {
            if (errno == EINTR) continue;
            err = errno;
            return done ? (long long)done : -1;
        }
        if (n == 0) break;
        done += size_t(n);
    }
    return (long long)done;
#else
    (void)to, (void)toOffset, (void)len, (void)offset;
    err = ENOSYS;
    return -1;
#endif
}

uint32_t File::DeviceSectorSize() const {
    int ss = 0;
    if (IsBlockDevice() && ioctl(m_handle, BLKSSZGET, &ss) == 0 && ss > 0) return uint32_t(ss);
    return 0;
}

std::string ProgramFolder() {
    char buf[4096];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
    if (n <= 0) return ".";
    std::string p(buf, size_t(n));
    for (int i = 0; i < 2; ++i) {
        auto cut = p.find_last_of('/');
        if (cut == std::string::npos) return ".";
        p.resize(cut);
    }
    return p.empty() ? "/" : p;
}

std::string RuntimeFolder() {
    if (const char* d = getenv("XDG_RUNTIME_DIR"); d && *d) return d;
    if (const char* t = getenv("TMPDIR"); t && *t) return t;
    return "/tmp";
}

bool FolderWritable(const std::string& folder) {
    struct stat st {};
    return ::stat(folder.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && ::access(folder.c_str(), W_OK | X_OK) == 0;
}

uint32_t InstanceLock::Acquire(const std::string& name) {
    std::string path = RuntimeFolder() + "/" + name + ".lock";
    m_handle = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (m_handle < 0) return SysCodeFromErrno(errno);
    if (flock(m_handle, LOCK_EX | LOCK_NB) != 0) {
        int e = errno;
        ::close(m_handle);
        m_handle = -1;
        return e == EWOULDBLOCK ? kErrAlreadyExists : SysCodeFromErrno(e);
    }
    return kErrSuccess;
}

InstanceLock::~InstanceLock() {
    if (m_handle >= 0) ::close(m_handle);
}

bool IsTerminal(int fd) { return isatty(fd) != 0; }

#endif

} // namespace kestrin::platform
