#pragma once
// A physical disk, a volume or an attached image file, with the partitions found on it.
#include <string>
#include <vector>

#include "storage/CStorageMedia.h"
#include "storage/PartitionRecord.h"

namespace kestrin {

enum DeviceKind : uint32_t { kNotByName = 0, kPhysicalDrive = 1, kVolume = 2 };

// Kind of the selected source item.
enum SourceKind : uint8_t {
    kSourceNone = 0,
    kSourceDiskPartition1 = 1,
    kSourceDiskPartition2 = 2,
    kSourcePhysicalDisk = 3,
    kSourceVolume = 4,
    kSourceImagePartition = 5,
    kSourceImageFile = 6,
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
    // size 512 unless given, sector count = bytes / sector size. "name.001" opens a split image.
    bool AttachImageFile(const std::string& path, uint32_t sectorSize = 512);

    // Copies a partition's parameters into the disk and narrows the range to it.
    void SelectPartition(const PartitionRecord& p, SourceKind kind);

    uint32_t GetDeviceKind() const { return m_deviceKind; }
    uint8_t GetFsKind() const { return m_fsKind; }
    void SetFsKind(uint8_t v) { m_fsKind = v; }
    uint8_t GetPartitionFlag() const { return m_partitionFlag; }
    void SetPartitionFlag(uint8_t v) { m_partitionFlag = v; }
    const PartitionRecord& GetPartitionParams() const { return m_params; }
    void SetPartitionParams(const PartitionRecord& p) { m_params = p; }
    uint8_t GetSourceKind() const { return m_sourceKind; }
    void SetSourceKind(uint8_t v) { m_sourceKind = v; }
    // The table's partitions; element 0 is the placeholder head (file-system kind 0).
    std::vector<PartitionRecord>& Partitions() { return m_partitions; }
    const std::vector<PartitionRecord>& Partitions() const { return m_partitions; }
    // Further partitions (dynamic-disk reader, lost-partition search).
    std::vector<PartitionRecord>& SecondPartitions() { return m_secondPartitions; }
    const std::vector<PartitionRecord>& SecondPartitions() const { return m_secondPartitions; }
    // The device path actually opened ("/dev/sdb"), for messages.
    const std::string& DevicePath() const { return m_devicePath; }

    // Whole disks in /sys/block order (the numbering used by a digit path).
    static std::vector<std::string> ListDiskNames();

private:
    uint64_t m_reservedHandle = 0;
    uint32_t m_deviceKind = kNotByName;
    uint8_t m_fsKind = 0;
    uint8_t m_partitionFlag = 0;
    PartitionRecord m_params;
    uint8_t m_sourceKind = kSourceNone;
    std::vector<PartitionRecord> m_partitions;
    uint32_t m_unused = 0;
    std::vector<PartitionRecord> m_secondPartitions;
    std::string m_devicePath;
};

} // namespace kestrin
