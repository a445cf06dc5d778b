#include "output/ContentCopy.h"

#include <algorithm>

#include "fs/CNode.h"
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
    case kFsNtfs:
        return NtfsWriteContent(media, node, sink);
    case kFsExFat:
        return ExFatWriteContent(media, node, sink);
    default:
        return FatWriteContent(media, node, sink);
    }
}

} // namespace

ContentResult WriteNodeContent(CPhysicalDisk& media, const CNode& node, const ContentSink& sink) {
    // Reads past the end of the source come back short and still succeed; what they could not
    // deliver was never on the source, so it is counted here as unreadable, whatever the engine
    // made of it.
    const uint64_t pastEndBefore = media.BytesPastEnd();
    ContentResult r = EngineContent(media, node, sink);
    const uint64_t pastEnd = media.BytesPastEnd() - pastEndBefore;
    if (pastEnd) {
        r.ok = false;
        r.unreadable += std::min<uint64_t>(pastEnd, node.size > r.unreadable ? node.size - r.unreadable : 0);
    }
    return r;
}

} // namespace kestrin
