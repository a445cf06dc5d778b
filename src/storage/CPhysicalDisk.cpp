#include "storage/CPhysicalDisk.h"

#include <algorithm>
#include <filesystem>

#include "platform/Platform.h"
#include "storage/ContainerSource.h"
#include "storage/SectorSize.h"
#include "util/Text.h"

namespace kestrin {

namespace {
constexpr uint32_t kDefaultSectorSize = 512;
// Devices report sector sizes up to this; larger values are not taken on trust.
constexpr uint32_t kMaxLogicalSectorSize = 65536;
} // namespace

CPhysicalDisk::CPhysicalDisk() : CStorageMedia(nullptr, 0, 0, 0) { m_partitions.resize(1); }

CPhysicalDisk::~CPhysicalDisk() {
    m_partitions.clear();
    m_secondPartitions.clear();
    m_handle.reset();
}

std::vector<std::string> CPhysicalDisk::ListDiskNames() {
    std::vector<std::string> names;
#ifndef _WIN32
    std::error_code ec;
    for (auto& e : std::filesystem::directory_iterator("/sys/block", ec)) {
        std::string n = e.path().filename().string();
        // Whole disks only: loop, ram and device-mapper nodes are not disks a user recovers from,
        // except loop devices with something attached, which stand for disk images.
        if (n.starts_with("ram") || n.starts_with("zram") || n.starts_with("dm-")) continue;
        if (n.starts_with("loop")) {
            std::error_code ec2;
            if (!std::filesystem::exists(e.path() / "loop" / "backing_file", ec2)) continue;
        }
        names.push_back(n);
    }
    std::sort(names.begin(), names.end());
#endif
    return names;
}

bool CPhysicalDisk::Open(const std::u16string& path) {
    m_path = path;
    if (path.empty()) return false;
    char16_t first = path[0];
    std::string device;
    std::string p8 = ToUtf8(path);
    if (first >= u'0' && first <= u'9') {
#ifdef _WIN32
        device = "\\\\.\\PHYSICALDRIVE" + p8;
#else
        auto disks = ListDiskNames();
        size_t n = 0;
        for (char c : p8) {
            if (c < '0' || c > '9' || n > 100000) return false;
            n = n * 10 + size_t(c - '0');
        }
        if (n >= disks.size()) return false;
        device = "/dev/" + disks[n];
#endif
        m_deviceKind = kPhysicalDrive;
    } else if ((first | 0x20) >= u'a' && (first | 0x20) <= u'z') {
#ifdef _WIN32
        device = "\\\\.\\" + p8;
#else
        device = "/dev/" + p8;
#endif
        m_deviceKind = kVolume;
#ifndef _WIN32
    } else if (first == u'/') {
        // Full device paths are the natural way to name a volume on this platform.
        device = p8;
        m_deviceKind = kVolume;
#endif
    } else {
        return false;
    }
    platform::File f;
    if (!f.OpenRead(device, true)) {
        // The recorded error stays 0, so this text is that of code 0; it is not shown.
        (void)ErrorText(m_lastError);
        return false;
    }
    m_devicePath = device;
    uint64_t bytes = f.Size();
    // The device's logical sector size when the system reports one; else the smallest read that
    // succeeds.
    uint32_t logical = f.DeviceSectorSize();
    Attach(std::make_unique<FileSource>(std::move(f), true));
    if (logical >= kDefaultSectorSize && logical <= kMaxLogicalSectorSize && logical % kDefaultSectorSize == 0)
        m_sectorSize = logical;
    else if (!ProbeSectorSize())
        return false;
    m_sectorCount = m_sectorSize ? bytes / m_sectorSize : 0;
    m_firstSector = 0;
    return true;
}

bool CPhysicalDisk::AttachImageFile(const std::string& path, uint32_t sectorSize) {
    std::unique_ptr<ByteSource> src;
    const bool split = path.size() > 4 && path.compare(path.size() - 4, 4, ".001") == 0;
    if (split) {
        uint32_t err = 0;
        auto parts = SplitFileSource::Open(path, err);
        if (!parts) {
            m_lastError = err;
            return false;
        }
        src = std::move(parts);
    } else {
        platform::File f;
        if (!f.OpenRead(path, false)) {
            m_lastError = f.LastError();
            return false;
        }
        src = std::make_unique<FileSource>(std::move(f), false);
    }
    // A virtual-disk or evidence container is read as the disk it holds (OpenContainerFile says
    // why one cannot be); a split raw image is raw.
    ContainerFormat format = split ? ContainerFormat::None : DetectContainer(*src);
    if (format != ContainerFormat::None) {
        ContainerProblem problem;
        auto container = ContainerSource::Open(path, format, problem);
        if (!container) {
            m_lastError = platform::kErrInvalidParameter;
            return false;
        }
        // 512 is what formats without a sector size of their own say: the bytes decide then.
        uint32_t recorded = container->SectorSize();
        if (!sectorSize && recorded > kDefaultSectorSize && IsSupportedSectorSize(recorded)) sectorSize = recorded;
        src = std::move(container);
    }
    m_path = ToUtf16(path);
    m_deviceKind = kNotByName;
    if (!sectorSize) sectorSize = DeclaredSectorSize(*src);
    m_sectorSize = sectorSize ? sectorSize : kDefaultSectorSize;
    m_sectorCount = src->Size() / m_sectorSize;
    m_firstSector = 0;
    Attach(std::move(src));
    return true;
}

void CPhysicalDisk::SelectPartition(const PartitionRecord& p, SourceKind kind) {
    m_params = p;
    m_fsKind = p.fsKind;
    m_partitionFlag = p.partitionFlag;
    m_sourceKind = kind;
    m_firstSector = p.startSector;
    m_sectorCount = p.length;
}

} // namespace kestrin
