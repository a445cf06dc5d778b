// A whole scan operation over an in-memory source built from the input: layout, the kind the
// mode calls for, the engines of this build on the worker thread, the kind-2-to-4 hand-over and
// the photo modes' pruning, then a walk over the tree. The first byte picks the mode.
#include <cstdint>
#include <memory>
#include <vector>

#include "job/QuietScanEvents.h"
#include "fs/CNode.h"
#include "scan/CScanDriver.h"
#include "storage/CPhysicalDisk.h"
#include "storage/SourceLayout.h"
#include "fs/ntfs/NtfsEngine.h"
#include "fs/fat/FatEngine.h"
#include "fs/exfat/ExFatEngine.h"
#include "carve/ScanSignatures.h"

using namespace kestrin;

namespace {

using Quiet = QuietScanEvents;

Engines FuzzEngines() {
    Engines e;
    e.fileSystemScan = [](CPhysicalDisk& media, [[maybe_unused]] int mode, [[maybe_unused]] ScanContext& ctx) {
        switch (media.GetFsKind()) {
        case FsKind::Ntfs: return NtfsScanVolume(media, mode, ctx);
        case FsKind::Fat16:
        case FsKind::Fat32: return FatScanVolume(media, mode, ctx);
        case FsKind::ExFat: return ExFatScanVolume(media, mode, ctx);
        default: return Outcome::Ok;
        }
    };
    e.signatureScan = [](CPhysicalDisk& media, uint32_t kind, uint64_t first, uint64_t end, ScanContext& ctx) {
        return ScanSignatures(media, kind, first, end, ctx);
    };
    e.preparation = [](CPhysicalDisk& media, ScanContext&) {
        (void)ReadSourceLayout(media);
        return Outcome::Ok;
    };
    e.diskRecordSearch = [](CPhysicalDisk& media, uint64_t first, uint64_t end, ScanContext& ctx) {
        return NtfsSearchRecords(media, first, end, ctx);
    };
    return e;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 513) return 0;
    static const uint32_t kModes[] = {1019, 1020, 1021, 1022, 1037, 1038};
    const auto mode = RecoveryMode(kModes[data[0] % 6]);
    CPhysicalDisk disk;
    disk.Attach(std::make_unique<MemorySource>(data + 1, size - 1));
    disk.SetSectorSize(512);
    const uint64_t sectors = (size - 1) / 512;
    disk.SetSectorCount(sectors);
    Layout layout;
    std::vector<PartitionRecord> parts = ListPartitions(disk, layout);
    disk.SetFirstSector(0);
    disk.SetSectorCount(sectors);
    disk.SetSourceKind(layout == Layout::Volume ? SourceKind::Volume : SourceKind::ImageFile);
    if (!parts.empty() && (data[0] & 0x80) && parts.front().startSector < sectors) {
        // A chosen partition, its range kept inside the source.
        const PartitionRecord& p = parts.front();
        disk.SelectPartition(p, layout == Layout::Volume ? SourceKind::Volume : SourceKind::ImagePartition);
        uint64_t count = layout == Layout::Gpt ? (p.length >= p.startSector ? p.length - p.startSector + 1 : 0) : p.length;
        if (count == 0 || count > sectors - p.startSector) count = sectors - p.startSector;
        disk.SetSectorCount(count);
    }
    Quiet events;
    CScanDriver driver(disk, FuzzEngines(), events);
    std::optional<OperationKind> kind = driver.StartForSource(mode);
    driver.Wait();
    if (kind == OperationKind::PartitionSearch && driver.NoPartitionFound() && driver.ContinueAsSignatureScan()) driver.Wait();
    std::unique_ptr<CNode> tree = driver.ReleaseTree();
    volatile uint64_t sum = 0;
    ForEachNode(tree.get(), [&](CNode* n) { sum = sum + n->size + n->name.size(); });
    return 0;
}
