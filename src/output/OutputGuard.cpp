#include "output/OutputGuard.h"

#include <cstdio>
#include <filesystem>

#include <sys/stat.h>

#include "output/UserMessages.h"
#include "storage/CPhysicalDisk.h"
#include "storage/ContainerSource.h"
#include "util/Text.h"

namespace kestrin {

namespace {

// A split image "name.001" is read together with name.002, name.003, ... while they exist.
void AddSplitParts(std::vector<platform::FileIdentity>& ids, const std::string& first) {
    if (first.size() < 4 || first.compare(first.size() - 4, 4, ".001") != 0) return;
    std::string stem = first.substr(0, first.size() - 3);
    for (int part = 2; part <= 999; ++part) {
        char num[16];
        std::snprintf(num, sizeof num, "%03d", part);
        platform::FileIdentity id = platform::IdentityOf(stem + num);
        if (!id.valid) break;
        ids.push_back(id);
    }
}

// A container's further segments, extents and parents are read with it.
void AddContainerFiles(std::vector<platform::FileIdentity>& ids, const std::string& path) {
    ContainerFormat format = ContainerFormat::None;
    ContainerProblem problem;
    if (auto container = OpenContainerFile(path, format, problem))
        for (const std::string& part : container->Files()) AddSourcePath(ids, part);
}

bool OnSourceDevice(uint64_t device, const std::vector<platform::FileIdentity>& sources) {
    for (const auto& s : sources)
        if (s.blockDevice && platform::SameDiskOrPartition(s.rdev, device)) return true;
    return false;
}

OutputCheck Problem(OutputProblem p, const std::string& path) { return {p, path}; }

} // namespace

void AddSourcePath(std::vector<platform::FileIdentity>& ids, const std::string& path) {
    platform::FileIdentity id = platform::IdentityOf(path);
    if (!id.valid) return;
    ids.push_back(id);
    AddSplitParts(ids, path);
}

std::vector<platform::FileIdentity> SourceIdentities(const CPhysicalDisk& media) {
    std::vector<platform::FileIdentity> ids;
    if (media.GetDeviceKind() == kNotByName) {
        AddSourcePath(ids, ToUtf8(media.GetPath()));
        AddContainerFiles(ids, ToUtf8(media.GetPath()));
    }
    if (!media.DevicePath().empty()) AddSourcePath(ids, media.DevicePath());
    return ids;
}

OutputCheck CheckOutputFile(const std::string& path, const std::vector<platform::FileIdentity>& sources,
                            bool overwrite, bool deviceAllowed) {
    platform::FileIdentity target = platform::IdentityOf(path);
    for (const auto& s : sources)
        if (platform::SameFile(target, s)) return Problem(OutputProblem::kIsSource, path);
    if (target.valid && target.blockDevice && OnSourceDevice(target.rdev, sources))
        return Problem(OutputProblem::kIsSource, path);
    uint64_t device = 0;
    if (platform::FileSystemDeviceOf(path, device) && OnSourceDevice(device, sources))
        return Problem(OutputProblem::kOnSourceDevice, path);
    if (!platform::ParentFolderExists(path)) return Problem(OutputProblem::kNoFolder, path);
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) return Problem(OutputProblem::kIsFolder, path);
    if (target.valid && target.blockDevice && deviceAllowed) return {};
    struct stat st;
    if (target.valid && ::stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode))
        return Problem(OutputProblem::kNotRegular, path);
    // A dangling symbolic link counts as taken too: writing through it would create its target.
    if (::lstat(path.c_str(), &st) == 0 && !overwrite) return Problem(OutputProblem::kExists, path);
    return {};
}

OutputCheck CheckOutputFolder(const std::string& folder, const std::vector<platform::FileIdentity>& sources) {
    platform::FileIdentity target = platform::IdentityOf(folder);
    for (const auto& s : sources)
        if (platform::SameFile(target, s)) return Problem(OutputProblem::kIsSource, folder);
    uint64_t device = 0;
    if (platform::FileSystemDeviceOf(folder, device) && OnSourceDevice(device, sources))
        return Problem(OutputProblem::kOnSourceDevice, folder);
    if (target.valid) {
        std::error_code ec;
        if (!std::filesystem::is_directory(folder, ec)) return Problem(OutputProblem::kNotAFolder, folder);
    }
    return {};
}

std::vector<UserText> DescribeOutputProblem(const OutputCheck& check) {
    const std::string& p = check.path;
    switch (check.problem) {
    case OutputProblem::kNone: return {};
    case OutputProblem::kIsSource:
        return {Words(p + ": "), TextOr("IDS_OUTPUT_IS_SOURCE", "this is the source itself; it is only ever read. Choose another file.")};
    case OutputProblem::kOnSourceDevice:
        return {Words(p + ": "), TextOr("IDS_OUTPUT_ON_SOURCE", "this lies on the source device; writing there could overwrite what is being recovered. Choose another drive.")};
    case OutputProblem::kExists:
        return {Words(p + ": "), TextOr("IDS_OUTPUT_EXISTS", "a file of this name exists and is kept (give --overwrite to replace it)")};
    case OutputProblem::kNoFolder:
        return {Words(p + ": "), TextOr("IDS_OUTPUT_NO_FOLDER", "the folder it would go into does not exist")};
    case OutputProblem::kIsFolder:
        return {Words(p + ": "), TextOr("IDS_OUTPUT_IS_FOLDER", "this is a folder; give a file name")};
    case OutputProblem::kNotRegular:
        return {Words(p + ": "), TextOr("IDS_OUTPUT_NOT_REGULAR", "this is a device or another special file, not a file that can be written")};
    case OutputProblem::kNotAFolder:
        return {Words(p + ": "), TextOr("IDS_OUTPUT_NOT_FOLDER", "this exists and is not a folder")};
    }
    return {};
}

} // namespace kestrin
