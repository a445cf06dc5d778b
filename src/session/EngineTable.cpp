#include "session/EngineTable.h"

#include "carve/ScanSignatures.h"
#include "fs/exfat/ExFatEngine.h"
#include "fs/fat/FatEngine.h"
#include "fs/ntfs/NtfsEngine.h"
#include "job/ScanContext.h"
#include "output/Conditions.h"
#include "recover/Recover.h"
#include "storage/CPhysicalDisk.h"
#include "storage/SourceLayout.h"

namespace kestrin {

Engines MakeEngines() {
    Engines e;
    e.fileSystemScan = [](CPhysicalDisk& media, int mode, ScanContext& ctx) -> Outcome {
        // A partition the table places but whose boot sector failed its test (an exFAT volume in
        // an NTFS-typed slot, an old small FAT16 card) is read for what it really holds.
        SourceKind source = media.GetSourceKind();
        if (media.GetPartitionFlag() == PartitionFlag::TableOnly &&
            (source == SourceKind::DiskPartition1 || source == SourceKind::DiskPartition2 || source == SourceKind::ImagePartition))
            return SmartScanVolume(media, ctx);
        switch (media.GetFsKind()) {
        case FsKind::Ntfs: return NtfsScanVolume(media, mode, ctx);
        case FsKind::Fat12:
        case FsKind::Fat16:
        case FsKind::Fat32: return FatScanVolume(media, mode, ctx);
        case FsKind::ExFat: return ExFatScanVolume(media, mode, ctx);
        default: break;
        }
        // No file system this program reads: said, not skipped.
        ctx.events.OnNotice(UserText{"IDS_CLI_NO_FILE_SYSTEM", "", false,
                                     "No file system this program reads was found on the selected volume."});
        return Outcome::Ok;
    };
    e.signatureScan = [](CPhysicalDisk& media, uint32_t kind, uint64_t first, uint64_t end, ScanContext& ctx) {
        return ScanSignatures(media, kind, first, end, ctx);
    };
    // The preparation of the lost-partition search: the partition table read again into the
    // media's lists, which the search then adds to. Reading the layout leaves the selection alone.
    e.preparation = [](CPhysicalDisk& media, ScanContext& ctx) {
        WalkWatch watch(media);
        (void)ReadSourceLayout(media);
        return watch.Finish(ctx);
    };
    // Lost partitions on a disk; on a chosen volume in formatted mode, the previous file system.
    e.diskRecordSearch = [](CPhysicalDisk& media, uint64_t first, uint64_t end, ScanContext& ctx) {
        return RecoverRecordSearch(media, first, end, ctx);
    };
    e.secondFileSystemScan = [](CPhysicalDisk& media, ScanContext& ctx) { return SmartScanVolume(media, ctx); };
    e.judgeConditions = [](CPhysicalDisk& media, CNode* top, ScanContext& ctx) {
        JudgeConditions(media, top, [&] { return ctx.MustStop(media); });
    };
    return e;
}

} // namespace kestrin
