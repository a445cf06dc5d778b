#include "output/ContentCopy.h"

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

ContentResult WriteNodeContent(CPhysicalDisk& media, const CNode& node, const ContentSink& sink) {
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

} // namespace kestrin
