#pragma once
// A physical disk, a volume or an attached image file, with the partitions found on it.
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "storage/CStorageMedia.h"
#include "storage/PartitionRecord.h"

namespace kestrin {

enum DeviceKind : uint32_t { kNotByName = 0, kPhysicalDrive = 1, kVolume = 2 };

// A dynamic-disk volume, listed in SecondPartitions() as the record starting at `startSector`
// and `sectors` long. One made of several ranges of the disk (spanned over pieces that are apart,
// striped, a mirror's first copy in pieces) carries `open`, which builds a source reading its
// bytes in order from the disk's own source `base` (borrowed: it must outlive the result); read
// that way the volume starts at its sector 0. One that is a single range has no `open` and is
// read as a range of the disk.
struct AssembledVolume {
    std::string name;
    uint64_t startSector = 0;
    uint64_t sectors = 0;
    std::function<std::unique_ptr<ByteSource>(ByteSource& base)> open;
};

// Kind of the selected source item.
enum class SourceKind : uint8_t {
    None = 0,
    DiskPartition1 = 1,
    DiskPartition2 = 2,
    PhysicalDisk = 3,
    Volume = 4,
    ImagePartition = 5,
    ImageFile = 6,
};

class CPhysicalDisk final : public CStorageMedia {
public:
    CPhysicalDisk();
    ~CPhysicalDisk() override;

    // "3" opens the fourth whole disk (the portable form of PHYSICALDRIVE3: the Nth entry of
    // /sys/block that is a disk); "sdb1" or "/dev/sdb1" opens that volume; "C:" a drive letter
    // on Windows. Anything else fails without a system call.
    bool Open(const std::u16string& path) override;

    // Opens an image file read-only and attaches it as a whole image: first sector 0, sector
    // count = bytes / sector size. The sector size is `sectorSize` when given, else the one the
    // image's bytes declare (storage/SectorSize.h), else 512. "name.001" opens a split image.
    bool AttachImageFile(const std::string& path, uint32_t sectorSize = 0);

    // Copies a partition's parameters into the disk and narrows the range to it.
    void SelectPartition(const PartitionRecord& p, SourceKind kind);

    uint32_t GetDeviceKind() const { return m_deviceKind; }
    FsKind GetFsKind() const { return m_fsKind; }
    void SetFsKind(FsKind v) { m_fsKind = v; }
    PartitionFlag GetPartitionFlag() const { return m_partitionFlag; }
    void SetPartitionFlag(PartitionFlag v) { m_partitionFlag = v; }
    const PartitionRecord& GetPartitionParams() const { return m_params; }
    void SetPartitionParams(const PartitionRecord& p) { m_params = p; }
    SourceKind GetSourceKind() const { return m_sourceKind; }
    void SetSourceKind(SourceKind v) { m_sourceKind = v; }
    // The table's partitions; element 0 is the placeholder head (FsKind::None).
    std::vector<PartitionRecord>& Partitions() { return m_partitions; }
    const std::vector<PartitionRecord>& Partitions() const { return m_partitions; }
    // Further partitions (dynamic-disk reader, lost-partition search).
    std::vector<PartitionRecord>& SecondPartitions() { return m_secondPartitions; }
    const std::vector<PartitionRecord>& SecondPartitions() const { return m_secondPartitions; }
    // The table's partitions of other file systems (listed last, scanned as plain ranges).
    std::vector<PartitionRecord>& OtherPartitions() { return m_otherPartitions; }
    const std::vector<PartitionRecord>& OtherPartitions() const { return m_otherPartitions; }
    // The dynamic-disk volumes behind entries of SecondPartitions(), in order of their first sector.
    std::vector<AssembledVolume>& AssembledVolumes() { return m_assembledVolumes; }
    const std::vector<AssembledVolume>& AssembledVolumes() const { return m_assembledVolumes; }
    // Takes the source back from the disk, which is left without one (Attach gives it another).
    std::unique_ptr<ByteSource> ReleaseHandle() { return std::move(m_handle); }
    // The device path actually opened ("/dev/sdb"), for messages.
    const std::string& DevicePath() const { return m_devicePath; }

    // Whole disks in /sys/block order (the numbering used by a digit path).
    static std::vector<std::string> ListDiskNames();

private:
    uint32_t m_deviceKind = kNotByName;
    FsKind m_fsKind = FsKind::None;
    PartitionFlag m_partitionFlag = PartitionFlag::None;
    PartitionRecord m_params;
    SourceKind m_sourceKind = SourceKind::None;
    std::vector<PartitionRecord> m_partitions;
    std::vector<PartitionRecord> m_secondPartitions;
    std::vector<PartitionRecord> m_otherPartitions;
    std::string m_devicePath;
    std::vector<AssembledVolume> m_assembledVolumes;
};

} // namespace kestrin
