#include "output/ContentCopy.h"

#include <algorithm>
#include <optional>

#include "fs/CNode.h"
#include "fs/VolumeHandle.h"
#include "storage/CPhysicalDisk.h"
#include "fs/ntfs/NtfsEngine.h"
#include "fs/fat/FatEngine.h"
#include "fs/exfat/ExFatEngine.h"
#include "carve/ScanSignatures.h"

namespace kestrin {

namespace {

ContentResult EngineContent(CPhysicalDisk& media, const CNode& node, const ContentSink& sink) {
    if (node.carved) {
        return CarvedWriteContent(media, node, sink);
    }
    switch (media.GetFsKind()) {
    case FsKind::Ntfs:
        return NtfsWriteContent(media, node, sink);
    case FsKind::ExFat:
        return ExFatWriteContent(media, node, sink);
    default:
        return FatWriteContent(media, node, sink);
    }
}

} // namespace

ContentResult WriteNodeContent(CPhysicalDisk& media, const CNode& node, const ContentSink& sink) {
    // File-system items are read through the volume they were found on, whatever the media has
    // selected since; carved items and trees without a volume handle through the selection.
    const VolumeHandle* volume = node.carved ? nullptr : VolumeOf(node);
    std::optional<CPhysicalDisk> view;
    if (volume && media.Handle()) {
        view.emplace();
        view->Attach(std::make_unique<BorrowedSource>(*media.Handle()));
        SelectVolume(*view, *volume);
    }
    CPhysicalDisk& reader = view ? *view : media;
    // Reads past the end of the source come back short and still succeed; what they could not
    // deliver was never on the source, so it is counted here as unreadable, whatever the engine
    // made of it.
    const uint64_t pastEndBefore = reader.BytesPastEnd();
    ContentResult r = EngineContent(reader, node, sink);
    const uint64_t pastEnd = reader.BytesPastEnd() - pastEndBefore;
    if (pastEnd) {
        r.ok = false;
        r.unreadable += std::min<uint64_t>(pastEnd, node.size > r.unreadable ? node.size - r.unreadable : 0);
    }
    return r;
}

} // namespace kestrin
