#include "session/Source.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/Platform.h"
#include "session/Texts.h"
#include "storage/ContainerSource.h"
#include "storage/SectorSize.h"
#include "util/Text.h"

namespace kestrin {

namespace {

bool AllDigits(const std::string& s) {
    if (s.empty()) return false;
    for (char c : s)
        if (c < '0' || c > '9') return false;
    return true;
}

// The system's reason why `path` cannot be opened for reading.
std::string OpenFailure(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        ::close(fd);
        return "cannot be read";
    }
    return platform::SysErrorText(platform::SysCodeFromErrno(errno));
}

// True when the block device `name` (e.g. "sdb1") is a partition of a disk.
bool IsPartitionDevice(const std::string& devicePath) {
    std::error_code ec;
    std::string name = std::filesystem::path(devicePath).filename().string();
    return std::filesystem::exists("/sys/class/block/" + name + "/partition", ec);
}

// Why an image file could not be attached: what is wrong with its container, else the system's
// reason.
std::string ImageFailure(const CPhysicalDisk& m, const std::string& path) {
    ContainerFormat kind = ContainerFormat::None;
    ContainerProblem p;
    OpenContainerFile(path, kind, p); // again, for the reason
    const std::string format = ContainerFormatName(kind);
    switch (p.kind) {
    case ContainerProblem::Kind::MissingParent:
        return Tf("IDS_CLI_IMAGE_PARENT_MISSING", EscapeForTerminal(p.name),
                  "the parent image %s is missing (it must lie beside this image)");
    case ContainerProblem::Kind::MissingPart:
        return Tf("IDS_CLI_IMAGE_PART_MISSING", EscapeForTerminal(p.name), "the image's part %s is missing");
    case ContainerProblem::Kind::Encrypted:
        return Tf("IDS_CLI_IMAGE_ENCRYPTED", format, "the %s image is encrypted");
    case ContainerProblem::Kind::Damaged:
        return Tf("IDS_CLI_IMAGE_DAMAGED", format, "the %s image is damaged or of an unsupported kind") +
               (p.detail.empty() ? std::string() : " (" + EscapeForTerminal(p.detail) + ")");
    case ContainerProblem::Kind::None: break;
    }
    return platform::SysErrorText(m.GetLastError());
}

// Gives the media back the whole source's bytes after an assembled volume was read.
void RestoreWholeBytes(OpenedSource& src) {
    if (src.parkedSource) src.media->Attach(std::move(src.parkedSource));
}

} // namespace

bool OpenSource(const std::string& path, OpenedSource& out, std::string& error, uint32_t sectorSize) {
    if (sectorSize && !IsSupportedSectorSize(sectorSize)) {
        error = "sector size " + std::to_string(sectorSize) + " is not 512, 1024, 2048 or 4096";
        return false;
    }
    out = OpenedSource{};
    out.path = path;
    out.media = std::make_unique<CPhysicalDisk>();
    CPhysicalDisk& m = *out.media;

    struct stat st {};
    bool exists = ::stat(path.c_str(), &st) == 0;
    if (AllDigits(path) && !exists) {
        // A digit is the Nth whole disk, as on the drive list.
        auto disks = CPhysicalDisk::ListDiskNames();
        if (!m.Open(ToUtf16(path))) {
            size_t n = path.size() > 6 ? disks.size() : std::stoul(path);
            error = n < disks.size() ? "disk " + path + " (/dev/" + disks[n] + "): " + OpenFailure("/dev/" + disks[n])
                                     : "there is no disk number " + path + " (see `kestrin drives`)";
            return false;
        }
        out.isDevice = true;
        out.wholeKind = SourceKind::PhysicalDisk;
    } else if (exists && S_ISBLK(st.st_mode)) {
        std::string dev = path.front() == '/' ? path : std::filesystem::absolute(path).string();
        if (!m.Open(ToUtf16(dev))) {
            error = path + ": " + OpenFailure(dev);
            return false;
        }
        out.isDevice = true;
        out.wholeKind = IsPartitionDevice(dev) ? SourceKind::Volume : SourceKind::PhysicalDisk;
    } else if (exists && S_ISREG(st.st_mode)) {
        if (path.size() > 5 && EqualsNoCase(path.substr(path.size() - 5), ".tks4")) {
            error = path + ": recovery session files cannot be opened by this build";
            return false;
        }
        if (!m.AttachImageFile(path, sectorSize)) {
            error = path + ": " + ImageFailure(m, path);
            return false;
        }
        out.wholeKind = SourceKind::ImageFile;
    } else if (!exists && path.size() > 4 && path.compare(path.size() - 4, 4, ".001") != 0) {
        error = path + ": " + platform::SysErrorText(platform::SysCodeFromErrno(errno));
        return false;
    } else if (!exists) {
        if (!m.AttachImageFile(path, sectorSize)) {
            error = path + ": " + platform::SysErrorText(m.GetLastError());
            return false;
        }
        out.wholeKind = SourceKind::ImageFile;
    } else {
        error = path + ": not an image file or a device";
        return false;
    }
    if (sectorSize && out.isDevice) {
        // A forced size on a device replaces the one the system reported.
        m.SetSectorSize(sectorSize);
        m.SetSectorCount(m.ByteSize() / sectorSize);
    }
    if (m.GetSectorSize() == 0 || m.GetSectorCount() == 0) {
        error = path + ": the source is empty or its size cannot be read";
        return false;
    }
    out.wholeSectorCount = m.GetSectorCount();
    out.partitions = ListPartitions(m, out.layout);
    if (out.layout == Layout::Volume) out.wholeKind = SourceKind::Volume;
    SelectWholeSource(out);
    return true;
}

void SelectWholeSource(OpenedSource& src) {
    RestoreWholeBytes(src);
    CPhysicalDisk& m = *src.media;
    m.SetFirstSector(0);
    m.SetSectorCount(src.wholeSectorCount);
    m.SetSourceKind(src.wholeKind);
    if (src.wholeKind == SourceKind::Volume && src.layout == Layout::Volume && !src.partitions.empty()) {
        // A volume carries its own geometry: the file-system engines read it from the media.
        m.SelectPartition(src.partitions.front(), SourceKind::Volume);
        m.SetFirstSector(0);
        m.SetSectorCount(src.wholeSectorCount);
    } else {
        m.SetFsKind(FsKind::None);
        m.SetPartitionParams(PartitionRecord{});
    }
}

uint64_t RecordSectorCount(const PartitionRecord& r, Layout layout) {
    // GPT records keep the entry's last sector in `length`, not a count: the range holds
    // length - start + 1 sectors. A last sector before the start is a broken entry: nothing.
    if (layout == Layout::Gpt) return r.length >= r.startSector ? r.length - r.startSector + 1 : 0;
    return r.length;
}

bool SelectListedPartition(OpenedSource& src, size_t index) {
    if (index >= src.partitions.size()) return false;
    const PartitionRecord& r = src.partitions[index];
    CPhysicalDisk& m = *src.media;
    if (r.startSector >= src.wholeSectorCount) return false;
    const AssembledVolume* dynamic = DynamicVolumeOf(src, index);
    if (dynamic && dynamic->open) {
        // Several ranges read as one: the whole source's bytes stay alive under the volume's
        // source, which reads them; the volume is then a source of its own from its sector 0.
        if (!src.parkedSource) src.parkedSource = m.ReleaseHandle();
        std::unique_ptr<ByteSource> volume = src.parkedSource ? dynamic->open(*src.parkedSource) : nullptr;
        uint64_t count = volume && m.GetSectorSize() ? volume->Size() / m.GetSectorSize() : 0;
        if (count == 0) {
            RestoreWholeBytes(src);
            return false;
        }
        m.Attach(std::move(volume));
        m.SelectPartition(r, SourceKind::Volume);
        m.SetFirstSector(0);
        m.SetSectorCount(count);
        return true;
    }
    RestoreWholeBytes(src);
    SourceKind kind = src.isDevice ? SourceKind::DiskPartition1 : SourceKind::ImagePartition;
    if (src.layout == Layout::Volume && r.startSector == 0) kind = SourceKind::Volume;
    m.SelectPartition(r, SourceKind(kind));
    uint64_t count = RecordSectorCount(r, src.layout);
    // Records found by a search carry a count whatever the table kind; a count that runs past
    // the end of the source is cut there, so no stage reads beyond the chosen source.
    if (r.found) count = r.length;
    uint64_t room = src.wholeSectorCount - r.startSector;
    if (count == 0 || count > room) count = room;
    m.SetSectorCount(count);
    return true;
}

const AssembledVolume* DynamicVolumeOf(const OpenedSource& src, size_t index) {
    // Records of the lost-partition search are never dynamic volumes (the search leaves out
    // what the lists already hold), even when one starts where a volume does; a table entry
    // (a GPT disk's dynamic data area) may start where its first volume does, but not also
    // hold exactly as many sectors unless it is that volume.
    if (index >= src.partitions.size() || src.partitions[index].found || !src.media) return nullptr;
    const PartitionRecord& r = src.partitions[index];
    const auto& kept = src.media->AssembledVolumes(); // in order of their first sector
    auto v = std::lower_bound(kept.begin(), kept.end(), r.startSector,
                              [](const AssembledVolume& k, uint64_t start) { return k.startSector < start; });
    if (v == kept.end() || v->startSector != r.startSector || v->sectors != RecordSectorCount(r, src.layout))
        return nullptr;
    return &*v;
}

std::vector<size_t> ScannablePartitions(const OpenedSource& src) {
    std::vector<size_t> out;
    for (size_t i = 0; i < src.partitions.size(); ++i)
        if (src.partitions[i].fsKind >= FsKind::Fat16 && src.partitions[i].fsKind <= FsKind::Fat12) out.push_back(i);
    return out;
}

std::string DescribePartitions(const OpenedSource& src) {
    std::string s;
    if (src.partitions.empty()) return s;
    const std::string start = T("IDS_CLI_START", "start");
    const std::string sectors = T("IDS_CLI_SECTORS", "sectors");
    const std::string found = "  " + T("IDS_CLI_FOUND_BY_SEARCH", "(found by the search)");
    const std::string dynamicVolume = T("IDS_CLI_DYNAMIC_VOLUME", "dynamic volume");
    char line[256];
    for (size_t i = 0; i < src.partitions.size(); ++i) {
        const auto& r = src.partitions[i];
        const AssembledVolume* dynamic = DynamicVolumeOf(src, i);
        std::snprintf(line, sizeof line, "  %3zu  %s %12llu  %s %12llu  %s%s", i + 1, start.c_str(),
                      (unsigned long long)r.startSector, sectors.c_str(),
                      (unsigned long long)RecordSectorCount(r, src.layout), FsKindName(r.fsKind),
                      r.found ? found.c_str() : "");
        s += line;
        if (dynamic) s += "  (" + dynamicVolume + " \"" + EscapeForTerminal(dynamic->name) + "\")";
        s += '\n';
    }
    return s;
}

} // namespace kestrin
