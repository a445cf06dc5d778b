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


std::optional<OperationKind> ChooseOperationKind(uint32_t mode, uint8_t sourceKind, bool imageCreationPending) {
    if (imageCreationPending) return OperationKind::CreateImage;
    switch (sourceKind) {
    case kSourceDiskPartition1:
    case kSourceDiskPartition2:
    case kSourceImagePartition:
        return OperationKind::FileSystemScan;
    case kSourceVolume:
        return mode == kModeFormatted ? OperationKind::PartitionSearch : OperationKind::FileSystemScan;
    case kSourcePhysicalDisk:
        return mode == kModeLostFiles || mode == kModeLostPhotos ? OperationKind::SignatureScan : OperationKind::PartitionSearch;
    case kSourceImageFile:
        // Unlike a physical disk, an image in mode 1020 still gets the partition search first.
        return mode == kModeLostPhotos ? OperationKind::SignatureScan : OperationKind::PartitionSearch;
    default:
        return std::nullopt;
    }
}

bool DeletedOnlyFor(uint32_t mode) { return mode == kModeDeletedFiles; }

std::string StatusTextId(OperationKind kind, uint32_t mode, uint8_t sourceKind, bool toDisc) {
    switch (kind) {
    case OperationKind::FileSystemScan:
        if (IsPhotoMode(mode)) return "IDS_SEARCHING_MUSIC_VIDEO_PHOTOS";
        if (sourceKind == kSourceDiskPartition1 || sourceKind == kSourceDiskPartition2 ||
            sourceKind == kSourceImagePartition)
            return "IDS_SEARCHING_LOST_DATA";
        return "IDS_SEARCHING_DELETED_FILES_FOLDERS";
    case OperationKind::Save:
        return toDisc ? "IDS_SAVING_DATA_TO_OPTICAL" : "IDS_SAVING_DATA_TO";
    case OperationKind::PartitionSearch:
        return mode == kModeFormatted ? "IDS_SEARCHING_PREVIOUS_FILE_SYSTEM" : "IDS_SEARCHING_LOST_PARTITIONS";
    case OperationKind::SmartScan:
        return "IDS_SMART_SCAN";
    case OperationKind::SignatureScan:
        return mode == kModeLostPhotos ? "IDS_SEARCHING_MUSIC_VIDEO_PHOTOS" : "IDS_PROCESSING_PHYSICAL_DRIVE";
    case OperationKind::CreateImage:
        return "IDS_CREATING_DISK_IMAGE";
    default:
        return {};
    }
}

std::vector<Stage> StagesOf(OperationKind kind, uint32_t mode, uint32_t destinationKind) {
    switch (kind) {
    case OperationKind::FileSystemScan: {
        std::vector<Stage> s{Stage::FileSystemScan, Stage::SignatureScan};
        if (IsPhotoMode(mode)) s.push_back(Stage::PhotoPruning);
        return s;
    }
    case OperationKind::Save:
        if (destinationKind == 0) return {Stage::SaveToFolder};
        if (destinationKind == 1) return {Stage::BurnToDisc};
        return {};
    case OperationKind::PartitionSearch:
        return {Stage::Preparation, Stage::DiskRecordSearch};
    case OperationKind::SmartScan:
        return {Stage::SecondFileSystemScan};
    case OperationKind::SignatureScan:
        return {Stage::SignatureScan};
    case OperationKind::CreateImage:
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
