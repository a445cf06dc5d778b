#pragma once
// The engine entry points the driver calls, as a table so that the command line, the desktop
// program and the tests can each supply the engines they have. An empty entry is an engine that
// is not part of this build: the driver says so on the status line instead of skipping silently.
#include <cstdint>
#include <functional>

namespace kestrin {

class CPhysicalDisk;
struct ScanContext;

struct Engines {
    // File-system scan of the selected range with deleted and lost items: (media, 1, window).
    std::function<void(CPhysicalDisk&, int, ScanContext&)> fileSystemScan;
    // Signature scan: (media, scan kind, first sector, end sector exclusive, window); returns the
    // stop state, or 0 when a read error ended the scan.
    std::function<uint32_t(CPhysicalDisk&, uint32_t, uint64_t, uint64_t, ScanContext&)> signatureScan;
    // Preparation step of the lost-partition search (kind 2).
    std::function<void(CPhysicalDisk&, ScanContext&)> preparation;
    // Whole-disk search for file-system records: (media, 0, sector count, window).
    std::function<void(CPhysicalDisk&, uint64_t, uint64_t, ScanContext&)> diskRecordSearch;
    // Second file-system scan (kind 3, smart scan).
    std::function<void(CPhysicalDisk&, ScanContext&)> secondFileSystemScan;
    std::function<void(CPhysicalDisk&, ScanContext&)> createImage;
    std::function<void(CPhysicalDisk&, ScanContext&)> saveToFolder;
    std::function<void(CPhysicalDisk&, ScanContext&)> burnToDisc;
};

} // namespace kestrin
