// Saving into a folder tree. Every object is made relative to an open directory descriptor of its
// folder and never through a path, so nothing that lies in the destination (a planted symbolic
// link, a folder renamed under us) can send a write outside it.
#include <atomic>
#include <cerrno>
#include <ctime>
#include <mutex>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fs/CNode.h"
#include "output/NodeTimes.h"
#include "output/OutputTarget.h"
#include "output/Saver.h"
#include "platform/Platform.h"
#include "storage/ByteSource.h"
#include "util/Text.h"

namespace kestrin {

namespace {

// Each open folder level holds one descriptor; deeper trees than this are refused as a path that
// is too long, as the system would.
constexpr size_t kMaxFolderDepth = 400;

uint32_t CodeOfErrno(int err, bool folder) {
    // File systems with a restricted character set (vfat) refuse a name with EINVAL.
    if (err == EINVAL) return platform::kErrInvalidName;
    return platform::SysCodeFromErrno(err, folder);
}

long SystemWrite(int fd, const void* data, size_t len) { return long(::write(fd, data, len)); }

// 0, or the errno of the failed write (a write that takes nothing counts as a full disk).
int WriteAll(WriteFn write, int fd, const uint8_t* p, size_t len) {
    while (len) {
        long n = write(fd, p, len);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return errno ? errno : EIO;
        if (n == 0) return ENOSPC;
        p += n;
        len -= size_t(n);
    }
    return 0;
}

class CFolderTarget final : public COutputTarget {
public:
    CFolderTarget(std::string root, WriteFn write) : m_root(std::move(root)), m_write(write ? write : &SystemWrite) {}
    ~CFolderTarget() override {
        if (m_file >= 0) ::close(m_file);
        if (m_log >= 0) ::close(m_log);
        for (int fd : m_dirs) ::close(fd);
    }

    uint32_t Open() override {
        int fd = ::open(m_root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0) return platform::SysCodeFromErrno(errno, true);
        m_dirs.push_back(fd);
        return 0;
    }

    uint32_t CreateFolder(const std::u16string& name) override {
        if (uint32_t code = CheckOutputName(name)) return code;
        if (m_dirs.size() > kMaxFolderDepth) return platform::kErrFilenameTooLong;
        std::string n = ToUtf8(name);
        if (::mkdirat(Current(), n.c_str(), 0777) != 0) return CodeOfErrno(errno, true);
        int fd = ::openat(Current(), n.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) return CodeOfErrno(errno, true);
        m_dirs.push_back(fd);
        m_names.push_back(n);
        return 0;
    }

    void LeaveFolder() override {
        if (m_dirs.size() <= 1) return;
        ::close(m_dirs.back());
        m_dirs.pop_back();
        m_names.pop_back();
    }

    uint32_t CreateFile(const std::u16string& name) override {
        if (uint32_t code = CheckOutputName(name)) return code;
        std::string n = ToUtf8(name);
        int fd = ::openat(Current(), n.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
        if (fd < 0) return CodeOfErrno(errno, false);
        m_file = fd;
        m_fileName = n;
        return 0;
    }

    FileOutcome WriteFile(CPhysicalDisk& media, const CNode& node, ContentWriter content,
                          const AdvanceFn& advance) override {
        FileOutcome out = Write(m_file, Current(), m_fileName, media, node, content, advance);
        m_file = -1;
        return out;
    }

    bool DetachFile(DetachedFile& file) override {
        if (m_file < 0) return false;
        file.file = m_file;
        file.folder = Current();
        file.name = m_fileName;
        m_file = -1;
        return true;
    }

    FileOutcome WriteDetached(DetachedFile& file, CPhysicalDisk& media, const CNode& node, ContentWriter content,
                              const AdvanceFn& advance) override {
        FileOutcome out = Write(file.file, file.folder, file.name, media, node, content, advance);
        file.file = -1;
        return out;
    }

    void DiscardDetached(DetachedFile& file) override {
        if (file.file < 0) return;
        ::close(file.file);
        file.file = -1;
        ::unlinkat(file.folder, file.name.c_str(), 0);
    }

    void RemoveRegularFile(const std::u16string& name) override {
        if (CheckOutputName(name)) return;
        std::string n = ToUtf8(name);
        struct stat st;
        if (::fstatat(Current(), n.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode))
            ::unlinkat(Current(), n.c_str(), 0);
    }

    std::string CurrentFolder() const override {
        std::string path = m_root;
        for (auto& n : m_names) path += "/" + n;
        return path;
    }

    bool OpenLog() override {
        if (m_log >= 0) return true;
        // Non-blocking so that a planted pipe cannot hold the save; a name that is taken (the
        // user's own log.txt, or a recovered file of that name) is left alone and the next free
        // one is used.
        for (int n = 1; n <= 1000; ++n) {
            std::string name = n == 1 ? "log.txt" : "log (" + std::to_string(n) + ").txt";
            int fd = ::openat(m_dirs.front(), name.c_str(),
                              O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644);
            if (fd >= 0) {
                m_log = fd;
                m_logName = name;
                return true;
            }
            if (errno != EEXIST) return false;
        }
        return false;
    }

    // UTF-16 little-endian without a byte-order mark: two bytes per character.
    void WriteLog(const std::u16string& text) override {
        if (m_log < 0) return;
        std::vector<uint8_t> bytes(text.size() * 2);
        for (size_t i = 0; i < text.size(); ++i) {
            bytes[2 * i] = uint8_t(text[i]);
            bytes[2 * i + 1] = uint8_t(text[i] >> 8);
        }
        WriteAll(&SystemWrite, m_log, bytes.data(), bytes.size());
    }

    void Finish(SaveResult& result) override {
        if (m_log >= 0) {
            ::close(m_log);
            m_log = -1;
            result.logPath = m_root + "/" + m_logName;
        }
        while (m_dirs.size() > 1) LeaveFolder();
    }

private:
    // Fills the new file `fd` named `name` in `folder`, then closes it; one that was cut short
    // goes. Touches nothing of the target but the write function and the copy switch, so files
    // may be written this way on two threads at once.
    FileOutcome Write(int fd, int folder, const std::string& name, CPhysicalDisk& media, const CNode& node,
                      ContentWriter content, const AdvanceFn& advance) {
        FileOutcome out;
        uint64_t position = 0; // bytes of the file written so far
        auto write = [&](const uint8_t* data, size_t len) {
            if (int err = WriteAll(m_write, fd, data, len)) {
                out.writeError = err;
                return false;
            }
            position += len;
            if (!advance(len)) {
                out.cancelled = true;
                return false;
            }
            return true;
        };
        // Runs of the source go from file to file in the kernel while it can. A copy that fails is
        // undone (the file position goes back; what it wrote is written over) and the run is read
        // and written instead, so a failure is found and counted as it always was. A write
        // function given by a test always sees every byte.
        auto copy = [&](ByteSource& source, uint64_t offset, size_t len) {
            if (m_noCopy.load(std::memory_order_relaxed)) return ContentSink::Copy::NotDone;
            int err = 0;
            long long n = source.CopyTo(fd, position, len, offset, err);
            if (n < 0 || size_t(n) != len) {
                if (err == EXDEV || err == EINVAL || err == ENOSYS || err == EOPNOTSUPP || err == EBADF)
                    m_noCopy.store(true, std::memory_order_relaxed);
                return ContentSink::Copy::NotDone;
            }
            if (::lseek(fd, off_t(position + len), SEEK_SET) < 0) {
                m_noCopy.store(true, std::memory_order_relaxed);
                ::lseek(fd, off_t(position), SEEK_SET);
                return ContentSink::Copy::NotDone;
            }
            position += len;
            if (!advance(len)) {
                out.cancelled = true;
                return ContentSink::Copy::Stop;
            }
            return ContentSink::Copy::Done;
        };
        ContentSink sink = m_write == &SystemWrite ? ContentSink(write, copy) : ContentSink(write);
        ContentResult r = content ? content(media, node, sink) : ContentResult{};
        if (!out.writeError && !out.cancelled) {
            // The file system's own times when they are known; else midnight of the shown date.
            struct timespec times[2] = {{0, UTIME_OMIT}, {0, UTIME_OMIT}};
            if (ItemTimes full; ReadNodeTimes(media, node, full) && full.modified != kNoTime) {
                times[1] = ToTimespec(full.modified);
                if (full.accessed != kNoTime) times[0] = ToTimespec(full.accessed);
            } else if (int64_t t; LocalTimeOfDosDate(SaveDateOf(node.modifiedDate, node.createdDate), t)) {
                times[1] = {time_t(t), 0};
            }
            if (times[1].tv_nsec != UTIME_OMIT) ::futimens(fd, times);
        }
        // Some file systems (network ones) report a failed write only when the file is closed.
        if (::close(fd) != 0 && !out.writeError && !out.cancelled && errno != EINTR) out.writeError = errno;
        out.unreadable = r.unreadable + r.beyondVolume;
        out.complete = r.ok && !out.writeError && !out.cancelled;
        // A file cut short by a cancel or a failed write would pass for a recovered one; it goes.
        if (out.cancelled || out.writeError) ::unlinkat(folder, name.c_str(), 0);
        return out;
    }

    int Current() const { return m_dirs.back(); }
    std::string m_root;
    std::vector<int> m_dirs;
    std::vector<std::string> m_names;
    int m_file = -1;
    std::string m_fileName;
    int m_log = -1;
    std::string m_logName;
    WriteFn m_write;
    // Set once the kernel refused to copy from the source into this destination.
    std::atomic<bool> m_noCopy{false};
};

} // namespace

bool IsControlOrOverride(char16_t c) {
    return c < 0x20 || (c >= 0x7F && c <= 0x9F) || (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069) ||
           c == 0x200E || c == 0x200F || c == 0x061C || c == 0x2028 || c == 0x2029;
}

uint32_t CheckOutputName(const std::u16string& name) {
    if (name.empty() || name == u"." || name == u"..") return platform::kErrInvalidName;
    for (char16_t c : name)
        if (c == u'/' || IsControlOrOverride(c)) return platform::kErrInvalidName;
    return 0;
}

bool LocalTimeOfDosDate(uint16_t dosDate, int64_t& seconds) {
    int day = dosDate & 31, month = (dosDate >> 5) & 15, year = (dosDate >> 9) + 1980;
    if (!dosDate || !day || !month || month > 12) return false;
    struct tm t = {};
    t.tm_year = year - 1900;
    t.tm_mon = month - 1;
    t.tm_mday = day;
    t.tm_isdst = -1;
    // The time zone is process-wide state that mktime reloads; files are dated on two threads.
    static std::mutex zone;
    std::lock_guard lk(zone);
    time_t v = ::mktime(&t);
    if (v == time_t(-1)) return false;
    seconds = int64_t(v);
    return true;
}

std::unique_ptr<COutputTarget> MakeFolderTarget(const std::string& root, WriteFn write) {
    return std::make_unique<CFolderTarget>(root, write);
}

} // namespace kestrin
