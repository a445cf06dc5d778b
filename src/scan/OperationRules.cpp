#include "scan/OperationRules.h"

#include "job/Modes.h"
#include "job/ScanOperation.h"
#include "storage/CPhysicalDisk.h"

namespace kestrin {

bool IsKnownMode(uint32_t mode) { return FindMode(mode) != nullptr; }

bool IsLostDataMode(uint32_t mode) {
    return (mode >= kModeLostFiles && mode <= kModeFormatted) || IsPhotoMode(mode);
}

bool IsPhotoMode(uint32_t mode) { return mode == kModeDeletedPhotos || mode == kModeLostPhotos; }


int ChooseOperationKind(uint32_t mode, uint8_t sourceKind, bool imageCreationPending) {
    if (imageCreationPending) return kKindCreateImage;
    switch (sourceKind) {
    case kSourceDiskPartition1:
    case kSourceDiskPartition2:
    case kSourceImagePartition:
        return kKindFileSystemScan;
    case kSourceVolume:
        return mode == kModeFormatted ? kKindPartitionSearch : kKindFileSystemScan;
    case kSourcePhysicalDisk:
        return mode == kModeLostFiles || mode == kModeLostPhotos ? kKindSignatureScan : kKindPartitionSearch;
    case kSourceImageFile:
        // Unlike a physical disk, an image in mode 1020 still gets the partition search first.
        return mode == kModeLostPhotos ? kKindSignatureScan : kKindPartitionSearch;
    default:
        return -1;
    }
}

bool DeletedOnlyFor(uint32_t mode) { return mode == kModeDeletedFiles; }

std::string StatusTextId(uint32_t kind, uint32_t mode, uint8_t sourceKind, bool toDisc) {
    switch (kind) {
    case kKindFileSystemScan:
        if (IsPhotoMode(mode)) return "IDS_SEARCHING_MUSIC_VIDEO_PHOTOS";
        if (sourceKind == kSourceDiskPartition1 || sourceKind == kSourceDiskPartition2 ||
            sourceKind == kSourceImagePartition)
            return "IDS_SEARCHING_LOST_DATA";
        return "IDS_SEARCHING_DELETED_FILES_FOLDERS";
    case kKindSave:
        return toDisc ? "IDS_SAVING_DATA_TO_OPTICAL" : "IDS_SAVING_DATA_TO";
    case kKindPartitionSearch:
        return mode == kModeFormatted ? "IDS_SEARCHING_PREVIOUS_FILE_SYSTEM" : "IDS_SEARCHING_LOST_PARTITIONS";
    case kKindSmartScan:
        return "IDS_SMART_SCAN";
    case kKindSignatureScan:
        return mode == kModeLostPhotos ? "IDS_SEARCHING_MUSIC_VIDEO_PHOTOS" : "IDS_PROCESSING_PHYSICAL_DRIVE";
    case kKindCreateImage:
        return "IDS_CREATING_DISK_IMAGE";
    default:
        return {};
    }
}

std::vector<Stage> StagesOf(uint32_t kind, uint32_t mode, uint32_t destinationKind) {
    switch (kind) {
    case kKindFileSystemScan: {
        std::vector<Stage> s{Stage::FileSystemScan, Stage::SignatureScan};
        if (IsPhotoMode(mode)) s.push_back(Stage::PhotoPruning);
        return s;
    }
    case kKindSave:
        if (destinationKind == 0) return {Stage::SaveToFolder};
        if (destinationKind == 1) return {Stage::BurnToDisc};
        return {};
    case kKindPartitionSearch:
        return {Stage::Preparation, Stage::DiskRecordSearch};
    case kKindSmartScan:
        return {Stage::SecondFileSystemScan};
    case kKindSignatureScan:
        return {Stage::SignatureScan};
    case kKindCreateImage:
        return {Stage::CreateImage};
    default:
        return {};
    }
}

const char* StageNameId(Stage s) {
    switch (s) {
    case Stage::FileSystemScan: return "IDS_STAGE_FILE_SYSTEM_SCAN";
    case Stage::SignatureScan: return "IDS_STAGE_SIGNATURE_SCAN";
    case Stage::PhotoPruning: return "IDS_STAGE_MEDIA_FILTER";
    case Stage::Preparation: return "IDS_STAGE_PREPARATION";
    case Stage::DiskRecordSearch: return "IDS_STAGE_RECORD_SEARCH";
    case Stage::SecondFileSystemScan: return "IDS_STAGE_SMART_SCAN";
    case Stage::SaveToFolder: return "IDS_STAGE_SAVE";
    case Stage::BurnToDisc: return "IDS_STAGE_BURN";
    case Stage::CreateImage: return "IDS_STAGE_CREATE_IMAGE";
    }
    return "";
}

const char* StageNameEnglish(Stage s) {
    switch (s) {
    case Stage::FileSystemScan: return "file-system scan";
    case Stage::SignatureScan: return "search for files by their content";
    case Stage::PhotoPruning: return "photo, music and video filter";
    case Stage::Preparation: return "reading of the partition table";
    case Stage::DiskRecordSearch: return "search for file-system records";
    case Stage::SecondFileSystemScan: return "smart scan";
    case Stage::SaveToFolder: return "saving to a folder";
    case Stage::BurnToDisc: return "writing to a disc";
    case Stage::CreateImage: return "creation of a disk image";
    }
    return "";
}

} // namespace kestrin
