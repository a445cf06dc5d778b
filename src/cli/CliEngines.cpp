#include "cli/CliEngines.h"

#include "app/Language.h"
#include "cli/CliText.h"
#include "job/ScanContext.h"
#include "storage/CPhysicalDisk.h"
#include "storage/SourceLayout.h"
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
#ifdef KESTRIN_HAVE_RECOVER
#include "recover/Recover.h"
#endif

namespace kestrin::cli {

bool HaveFileSystemEngine(uint8_t fsKind) {
    switch (fsKind) {
    case kFsFat16:
    case kFsFat32:
#ifdef KESTRIN_HAVE_FAT
        return true;
#else
        return false;
#endif
    case kFsNtfs:
#ifdef KESTRIN_HAVE_NTFS
        return true;
#else
        return false;
#endif
    case kFsExFat:
#ifdef KESTRIN_HAVE_EXFAT
        return true;
#else
        return false;
#endif
    default:
        return false;
    }
}

Engines MakeCliEngines() {
    Engines e;
#if defined(KESTRIN_HAVE_NTFS) || defined(KESTRIN_HAVE_FAT) || defined(KESTRIN_HAVE_EXFAT)
    e.fileSystemScan = [](CPhysicalDisk& media, [[maybe_unused]] int mode, ScanContext& ctx) -> Outcome {
        uint8_t fs = media.GetFsKind();
#ifdef KESTRIN_HAVE_RECOVER
        // A partition the table places but whose boot sector failed its test (an exFAT volume in
        // an NTFS-typed slot, an old small FAT16 card) is read for what it really holds.
        uint8_t source = media.GetSourceKind();
        if (media.GetPartitionFlag() == kTableOnly &&
            (source == kSourceDiskPartition1 || source == kSourceDiskPartition2 || source == kSourceImagePartition)) {
            return SmartScanVolume(media, ctx);
        }
#endif
        switch (fs) {
#ifdef KESTRIN_HAVE_NTFS
        case kFsNtfs:
            return NtfsScanVolume(media, mode, ctx);
#endif
#ifdef KESTRIN_HAVE_FAT
        case kFsFat16:
        case kFsFat32:
            return FatScanVolume(media, mode, ctx);
#endif
#ifdef KESTRIN_HAVE_EXFAT
        case kFsExFat:
            return ExFatScanVolume(media, mode, ctx);
#endif
        default:
            break;
        }
        // A file system this build has no engine for (or none recognised): said, not skipped.
        if (fs >= kFsFat16 && fs <= kFsExFat)
            ctx.events.OnNotice(Tf("IDS_CLI_STAGE_NOT_AVAILABLE", FsKindName(fs)));
        else
            ctx.events.OnNotice(T("IDS_CLI_NO_FILE_SYSTEM", "No file system this program reads was found on the selected volume."));
        return Outcome::Ok;
    };
#endif
#ifdef KESTRIN_HAVE_CARVE
    e.signatureScan = [](CPhysicalDisk& media, uint32_t kind, uint64_t first, uint64_t end, ScanContext& ctx) {
        return ScanSignatures(media, kind, first, end, ctx);
    };
#endif
    // The preparation of the lost-partition search: the partition table read again into the
    // media's lists, which the search then adds to.
    e.preparation = [](CPhysicalDisk& media, ScanContext& ctx) {
        WalkWatch watch(media);
        uint64_t first = media.GetFirstSector(), count = media.GetSectorCount();
        uint8_t kind = media.GetSourceKind();
        (void)ReadSourceLayout(media);
        media.SetFirstSector(first);
        media.SetSectorCount(count);
        media.SetSourceKind(kind);
        return watch.Finish(ctx);
    };
#ifdef KESTRIN_HAVE_RECOVER
    // Lost partitions on a disk; on a chosen volume in formatted mode, the previous file system.
    e.diskRecordSearch = [](CPhysicalDisk& media, uint64_t first, uint64_t end, ScanContext& ctx) {
        return RecoverRecordSearch(media, first, end, ctx);
    };
    e.secondFileSystemScan = [](CPhysicalDisk& media, ScanContext& ctx) { return SmartScanVolume(media, ctx); };
#elif defined(KESTRIN_HAVE_NTFS)
    e.diskRecordSearch = [](CPhysicalDisk& media, uint64_t first, uint64_t end, ScanContext& ctx) {
        return NtfsSearchRecords(media, first, end, ctx);
    };
#endif
    return e;
}

} // namespace kestrin::cli
