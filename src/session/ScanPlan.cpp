#include "session/ScanPlan.h"

#include "job/ScanOperation.h"

namespace kestrin {

std::optional<OperationKind> ForcedKindFor(RecoveryMode mode, const PartitionRecord& chosen) {
    if (mode == RecoveryMode::Formatted) return OperationKind::PartitionSearch;
    if (mode == RecoveryMode::Partition && chosen.partitionFlag == PartitionFlag::TableOnly) return OperationKind::SmartScan;
    return std::nullopt;
}

void TakeDetectedFileSystem(OpenedSource& src, size_t index, std::optional<OperationKind> forcedKind) {
    if (index >= src.partitions.size() || !src.media) return;
    PartitionRecord& r = src.partitions[index];
    if (!forcedKind && r.partitionFlag != PartitionFlag::TableOnly) return;
    PartitionRecord seen = src.media->GetPartitionParams();
    seen.fsKind = src.media->GetFsKind();
    seen.startSector = r.startSector;
    seen.length = r.length;
    seen.found = r.found;
    r = seen;
}

void RefreshPartitionList(OpenedSource& src) {
    CPhysicalDisk& m = *src.media;
    src.partitions.clear();
    if (m.Partitions().size() > 1) src.partitions.assign(m.Partitions().begin() + 1, m.Partitions().end());
    src.partitions.insert(src.partitions.end(), m.SecondPartitions().begin(), m.SecondPartitions().end());
    src.partitions.insert(src.partitions.end(), m.OtherPartitions().begin(), m.OtherPartitions().end());
}

} // namespace kestrin
