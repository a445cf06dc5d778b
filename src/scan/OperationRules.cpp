#include "scan/OperationRules.h"

#include "job/Modes.h"
#include "job/ScanOperation.h"
#include "storage/CPhysicalDisk.h"

namespace kestrin {

bool IsKnownMode(uint32_t mode) { return FindMode(static_cast<RecoveryMode>(mode)) != nullptr; }

bool IsLostDataMode(RecoveryMode mode) {
    return (mode >= RecoveryMode::LostFiles && mode <= RecoveryMode::Formatted) || IsPhotoMode(mode);
}

bool IsPhotoMode(RecoveryMode mode) { return mode == RecoveryMode::DeletedPhotos || mode == RecoveryMode::LostPhotos; }


std::optional<OperationKind> ChooseOperationKind(RecoveryMode mode, SourceKind sourceKind, bool imageCreationPending) {
    if (imageCreationPending) return OperationKind::CreateImage;
    switch (sourceKind) {
    case SourceKind::DiskPartition1:
    case SourceKind::DiskPartition2:
    case SourceKind::ImagePartition:
        return OperationKind::FileSystemScan;
    case SourceKind::Volume:
        return mode == RecoveryMode::Formatted ? OperationKind::PartitionSearch : OperationKind::FileSystemScan;
    case SourceKind::PhysicalDisk:
        return mode == RecoveryMode::LostFiles || mode == RecoveryMode::LostPhotos ? OperationKind::SignatureScan : OperationKind::PartitionSearch;
    case SourceKind::ImageFile:
        // Unlike a physical disk, an image in RecoveryMode::LostFiles still gets the partition search first.
        return mode == RecoveryMode::LostPhotos ? OperationKind::SignatureScan : OperationKind::PartitionSearch;
    default:
        return std::nullopt;
    }
}

bool DeletedOnlyFor(RecoveryMode mode) { return mode == RecoveryMode::DeletedFiles; }

std::string StatusTextId(OperationKind kind, RecoveryMode mode, SourceKind sourceKind, bool toDisc) {
    switch (kind) {
    case OperationKind::FileSystemScan:
        if (IsPhotoMode(mode)) return "IDS_SEARCHING_MUSIC_VIDEO_PHOTOS";
        if (sourceKind == SourceKind::DiskPartition1 || sourceKind == SourceKind::DiskPartition2 ||
            sourceKind == SourceKind::ImagePartition)
            return "IDS_SEARCHING_LOST_DATA";
        return "IDS_SEARCHING_DELETED_FILES_FOLDERS";
    case OperationKind::Save:
        return toDisc ? "IDS_SAVING_DATA_TO_OPTICAL" : "IDS_SAVING_DATA_TO";
    case OperationKind::PartitionSearch:
        return mode == RecoveryMode::Formatted ? "IDS_SEARCHING_PREVIOUS_FILE_SYSTEM" : "IDS_SEARCHING_LOST_PARTITIONS";
    case OperationKind::SmartScan:
        return "IDS_SMART_SCAN";
    case OperationKind::SignatureScan:
        return mode == RecoveryMode::LostPhotos ? "IDS_SEARCHING_MUSIC_VIDEO_PHOTOS" : "IDS_PROCESSING_PHYSICAL_DRIVE";
    case OperationKind::CreateImage:
        return "IDS_CREATING_DISK_IMAGE";
    default:
        return {};
    }
}

std::vector<Stage> StagesOf(OperationKind kind, RecoveryMode mode, uint32_t destinationKind) {
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
