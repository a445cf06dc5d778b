#include "output/ContentCopy.h"

#include <algorithm>

#include "fs/CNode.h"
#include "storage/CPhysicalDisk.h"
#ifdef KESTRIN_HAVE_NTFS
#include "fs/ntfs/NtfsEngine.h"
#endif
#ifdef KESTRIN_HAVE_FAT
#include "fs/fat/FatEngine.h"
#endif
#ifdef KESTRIN_HAVE_EXFAT
#include "fs/exfat/ExFatEngine.h"
#endif
#ifdef KESTRIN_HAVE_CARVE
#include "carve/ScanSignatures.h"
#endif

namespace kestrin {

namespace {

ContentResult EngineContent(CPhysicalDisk& media, const CNode& node, const ContentSink& sink) {
    if (node.carved) {
#ifdef KESTRIN_HAVE_CARVE
        return CarvedWriteContent(media, node, sink);
#else
        return {};
#endif
    }
    switch (media.GetFsKind()) {
    case kFsNtfs:
#ifdef KESTRIN_HAVE_NTFS
        return NtfsWriteContent(media, node, sink);
#else
        return {};
#endif
    case kFsExFat:
#ifdef KESTRIN_HAVE_EXFAT
        return ExFatWriteContent(media, node, sink);
#else
        return {};
#endif
    default:
#ifdef KESTRIN_HAVE_FAT
        return FatWriteContent(media, node, sink);
#else
        return {};
#endif
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
