#include "session/ImagePlan.h"

namespace kestrin {

std::string BadSectorMapPath(const std::string& imagePath) { return imagePath + ".map"; }

OutputCheck CheckImageTarget(const OpenedSource& src, const std::string& sourcePath, const std::string& imagePath,
                             bool overwrite) {
    std::vector<platform::FileIdentity> ids;
    if (src.media) ids = SourceIdentities(*src.media);
    AddSourcePath(ids, sourcePath.empty() ? src.path : sourcePath);
    OutputCheck check = CheckOutputFile(imagePath, ids, overwrite, true);
    if (!check.ok()) return check;
    return CheckOutputFile(BadSectorMapPath(imagePath), ids, overwrite, false);
}

bool SelectImageRange(OpenedSource& src, int index) {
    SelectWholeSource(src);
    if (index < 0) return true;
    size_t n = size_t(index);
    if (n >= src.partitions.size() || !SelectListedPartition(src, n)) return false;
    const PartitionRecord& r = src.partitions[n];
    uint64_t declared = RecordSectorCount(r, src.layout);
    // A sector count beyond 2^48 is no disk's: such an entry is copied as far as the source goes.
    if (!DynamicVolumeOf(src, n) && declared > src.media->GetSectorCount() && declared < (1ull << 48))
        src.media->SetSectorCount(declared);
    return true;
}

} // namespace kestrin
