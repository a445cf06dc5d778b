#include "platform/FileIdentity.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace kestrin::platform {

namespace {

// /sys/dev/block/MAJ:MIN resolves to the device's folder; a partition's folder sits in its disk's.
std::filesystem::path SysBlockFolder(uint64_t dev) {
    std::error_code ec;
    auto p = std::filesystem::canonical(
        "/sys/dev/block/" + std::to_string(major(dev)) + ":" + std::to_string(minor(dev)), ec);
    return ec ? std::filesystem::path() : p;
}

} // namespace

FileIdentity IdentityOf(const std::string& path) {
    FileIdentity id;
    struct stat st;
    if (path.empty() || ::stat(path.c_str(), &st) != 0) return id;
    id.valid = true;
    id.device = uint64_t(st.st_dev);
    id.inode = uint64_t(st.st_ino);
    id.blockDevice = S_ISBLK(st.st_mode);
    id.rdev = id.blockDevice ? uint64_t(st.st_rdev) : 0;
    return id;
}

bool SameFile(const FileIdentity& a, const FileIdentity& b) {
    if (!a.valid || !b.valid) return false;
    if (a.device == b.device && a.inode == b.inode) return true;
    // Two device nodes (/dev/sdb and a copy made with mknod) stand for the same device.
    return a.blockDevice && b.blockDevice && a.rdev == b.rdev;
}

bool FileSystemDeviceOf(const std::string& path, uint64_t& device) {
    std::filesystem::path p = path.empty() ? std::filesystem::path(".") : std::filesystem::path(path);
    for (int guard = 0; guard < 4096; ++guard) {
        struct stat st;
        if (::stat(p.c_str(), &st) == 0) {
            device = uint64_t(st.st_dev);
            return true;
        }
        if (!p.has_relative_path() && p.has_root_path()) return false;
        std::filesystem::path parent = p.parent_path();
        if (parent.empty()) parent = ".";
        if (parent == p) return false;
        p = parent;
    }
    return false;
}

bool SameDiskOrPartition(uint64_t a, uint64_t b) {
    if (a == b) return true;
    auto fa = SysBlockFolder(a), fb = SysBlockFolder(b);
    if (fa.empty() || fb.empty()) return false;
    return fa.parent_path() == fb || fb.parent_path() == fa;
}

bool ParentFolderExists(const std::string& path) {
    std::filesystem::path parent = std::filesystem::path(path).parent_path();
    if (parent.empty()) return true;
    std::error_code ec;
    return std::filesystem::is_directory(parent, ec);
}

std::string ErrnoText(int err) { return std::strerror(err); }

} // namespace kestrin::platform
