#pragma once
// Opening SOURCE on the command line: an image file (raw, or split name.001), a device
// (/dev/sdb, /dev/sdb1, sdb) or a digit for the Nth disk, always read-only; and choosing one of
// its partitions with the numbering of `kestrin partitions`.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "storage/CPhysicalDisk.h"
#include "storage/SourceLayout.h"

namespace kestrin {

struct OpenedSource {
    std::string path; // as given
    // The whole source's bytes while the media reads an assembled dynamic-disk volume through
    // them (declared before `media`, so that it is destroyed after the volume's source).
    std::unique_ptr<ByteSource> parkedSource;
    std::unique_ptr<CPhysicalDisk> media;
    Layout layout = Layout::None;
    // The numbered list: entry N - 1 is `--partition N`.
    std::vector<PartitionRecord> partitions;
    bool isDevice = false;
    // Source kind of the whole source: 3 a physical disk, 4 a volume, 6 an image file.
    SourceKind wholeKind = SourceKind::ImageFile;
    uint64_t wholeSectorCount = 0;
};

// Opens `path` read-only and reads its layout. On failure returns false with a message. The
// sector size is `sectorSize` when given (512, 1024, 2048 or 4096); else a device's own logical
// sector size, and for an image file the one its bytes declare (a GPT header, a volume's boot
// sector), else 512.
bool OpenSource(const std::string& path, OpenedSource& out, std::string& error, uint32_t sectorSize = 0);

// Puts the media back to the whole source (before choosing another partition).
void SelectWholeSource(OpenedSource& src);
// Narrows the media to partition `index` (0-based) of the list with the right source kind:
// a partition inside an image 5, of a disk 1, the one volume of a volume image or device 4.
// The range is clamped to the source: a table entry may claim sectors past its end.
// A dynamic-disk volume made of several ranges is read through a source of its own that
// assembles them: the media then starts at the volume's sector 0, with source kind SourceKind::Volume.
bool SelectListedPartition(OpenedSource& src, size_t index);
// The dynamic-disk volume behind entry `index` of the list, or null when it is not one.
const AssembledVolume* DynamicVolumeOf(const OpenedSource& src, size_t index);
// Sector count of a record: GPT records keep the entry's last sector in `length`.
uint64_t RecordSectorCount(const PartitionRecord& r, Layout layout);

// Indices of the entries a file-system scan can read (a recognised file system).
std::vector<size_t> ScannablePartitions(const OpenedSource& src);
// One line per listed partition ("  N  start  sectors  FS"), for error messages.
std::string DescribePartitions(const OpenedSource& src);

} // namespace kestrin
