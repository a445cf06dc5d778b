#pragma once
// The engine entry points the driver calls, as a table so that the command line, the desktop
// program and the tests can each supply the engines they have. An empty entry is an engine that
// is not part of this build: the driver says so on the status line instead of skipping silently.
#include <cstdint>
#include <functional>

#include "job/Outcome.h"

namespace kestrin {

class CNode;
class CPhysicalDisk;
struct ScanContext;

struct Engines {
    // Every entry returns how its walk ended; the driver alone turns that into the operation's
    // state and decides what runs next.
    // File-system scan of the selected range with deleted and lost items: (media, 1, window).
    std::function<Outcome(CPhysicalDisk&, int, ScanContext&)> fileSystemScan;
    // Signature scan: (media, scan kind, first sector, end sector exclusive, window).
    std::function<Outcome(CPhysicalDisk&, uint32_t, uint64_t, uint64_t, ScanContext&)> signatureScan;
    // Preparation step of the lost-partition search (OperationKind::PartitionSearch).
    std::function<Outcome(CPhysicalDisk&, ScanContext&)> preparation;
    // Whole-disk search for file-system records: (media, 0, sector count, window).
    std::function<Outcome(CPhysicalDisk&, uint64_t, uint64_t, ScanContext&)> diskRecordSearch;
    // Second file-system scan (OperationKind::SmartScan).
    std::function<Outcome(CPhysicalDisk&, ScanContext&)> secondFileSystemScan;
    // Judges how recoverable the deleted files under the found volumes are: (media, top,
    // window), after the stages that find volumes. Empty: their conditions stay unknown.
    std::function<void(CPhysicalDisk&, CNode*, ScanContext&)> judgeConditions;
    std::function<Outcome(CPhysicalDisk&, ScanContext&)> createImage;
    std::function<Outcome(CPhysicalDisk&, ScanContext&)> saveToFolder;
    std::function<Outcome(CPhysicalDisk&, ScanContext&)> burnToDisc;
};

} // namespace kestrin
