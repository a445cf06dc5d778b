#include "fs/Content.h"

#include "storage/CPhysicalDisk.h"

namespace kestrin {

namespace {
// Below this a copy by the kernel costs about what reading and writing the bytes costs (measured
// on ext4: equal at 64 KiB, a third to a quarter of the processor time at 1 MiB), and small files
// stay on the path that has always served them.
constexpr size_t kMinCopyBytes = 64 << 10;
} // namespace

ContentSink::Copy CopySourceRun(CPhysicalDisk& media, const ContentSink& sink, uint64_t offset, size_t len) {
    ByteSource* source = media.Handle();
    if (!sink.CanCopy() || !source || (len < kMinCopyBytes && !sink.WantsEveryRun())) return ContentSink::Copy::NotDone;
    const uint64_t size = source->Size();
    if (offset > size || size - offset < len) return ContentSink::Copy::NotDone;
    return sink.CopyRun(*source, offset, len);
}

} // namespace kestrin
