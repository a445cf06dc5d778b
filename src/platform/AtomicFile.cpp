#include "platform/AtomicFile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kestrin::platform {

namespace {

// "dir/name" → "dir/.name.XXXXXX.part" (a hidden name that says what it is when left behind).
std::string TempTemplate(const std::string& path) {
    size_t slash = path.rfind('/');
    std::string folder = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    // Long final names keep the temporary within the folder's name limit.
    if (name.size() > 200) name.resize(200);
    return folder + "." + name + ".XXXXXX.part";
}

// Creates the temporary for `path`; its name in `tmpl`. mkstemp makes the file private; a
// finished output gets the usual rights (the umask is not touched: other threads create files).
int OpenTempBeside(const std::string& path, std::string& tmpl) {
    tmpl = TempTemplate(path);
    int fd = ::mkostemps(tmpl.data(), 5, O_CLOEXEC);
    if (fd >= 0) ::fchmod(fd, 0644);
    return fd;
}

} // namespace

bool RenameNoReplace(const std::string& from, const std::string& to, int& error) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) {
        error = errno;
        return false;
    }
    if (::link(from.c_str(), to.c_str()) == 0) {
        ::unlink(from.c_str());
        return true;
    }
    if (errno == EEXIST || (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS)) {
        error = errno;
        return false;
    }
    struct stat st;
    if (::lstat(to.c_str(), &st) == 0) {
        error = EEXIST;
        return false;
    }
    if (::rename(from.c_str(), to.c_str()) != 0) {
        error = errno;
        return false;
    }
    return true;
}

std::string MakeTempBeside(const std::string& path, int& error) {
    std::string tmpl;
    int fd = OpenTempBeside(path, tmpl);
    if (fd < 0) {
        error = errno;
        return {};
    }
    ::close(fd);
    return tmpl;
}

AtomicFile::~AtomicFile() { Abort(); }

bool AtomicFile::Create(const std::string& path, bool replace) {
    Abort();
    m_path = path;
    m_replace = replace;
    m_error = 0;
    m_fd = OpenTempBeside(path, m_temp);
    if (m_fd < 0) {
        m_error = errno;
        m_temp.clear();
        return false;
    }
    return true;
}

bool AtomicFile::Write(const void* data, size_t len) {
    if (m_fd < 0) {
        if (!m_error) m_error = EBADF;
        return false;
    }
    auto* p = static_cast<const uint8_t*>(data);
    while (len) {
        ssize_t n = ::write(m_fd, p, len);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (!m_error) m_error = n < 0 ? errno : ENOSPC;
            return false;
        }
        p += n;
        len -= size_t(n);
    }
    return true;
}

bool AtomicFile::Commit() {
    if (m_fd < 0 || m_error) {
        if (!m_error) m_error = EBADF;
        Abort();
        return false;
    }
    if (::fsync(m_fd) != 0 && errno != EINVAL && errno != EROFS) m_error = errno;
    if (::close(m_fd) != 0 && !m_error) m_error = errno;
    m_fd = InvalidHandle();
    if (m_error) {
        Abort();
        return false;
    }
    if (m_replace) {
        if (::rename(m_temp.c_str(), m_path.c_str()) != 0) {
            m_error = errno;
            Abort();
            return false;
        }
    } else if (!RenameNoReplace(m_temp, m_path, m_error)) {
        Abort();
        return false;
    }
    // The rename itself is made durable by syncing the folder.
    size_t slash = m_path.rfind('/');
    std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : m_path.substr(0, slash);
    int dfd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
        ::fsync(dfd);
        ::close(dfd);
    }
    m_temp.clear();
    return true;
}

void AtomicFile::Abort() {
    if (m_fd >= 0) ::close(m_fd);
    m_fd = InvalidHandle();
    if (!m_temp.empty()) ::unlink(m_temp.c_str());
    m_temp.clear();
}

bool WriteFileAtomically(const std::string& path, const void* data, size_t len, bool replace, int* error) {
    AtomicFile f;
    bool ok = f.Create(path, replace) && f.Write(data, len) && f.Commit();
    if (error) *error = ok ? 0 : f.Error();
    return ok;
}

} // namespace kestrin::platform
