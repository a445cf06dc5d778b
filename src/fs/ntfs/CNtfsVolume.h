#pragma once
// One NTFS volume on the storage media: its geometry from the boot sector, its MFT located from
// record 0 (or the mirror), and reads of volume bytes, MFT records and attribute runs. All reads
// go through the media's ReadSectors and are clipped to the volume.
#include <cstdint>
#include <vector>

#include "fs/ntfs/NtfsRecord.h"
#include "storage/CPhysicalDisk.h"

namespace kestrin {

class CNtfsVolume final : public INtfsRecordSource {
public:
    explicit CNtfsVolume(CPhysicalDisk& media);

    // Geometry from the boot sector at the volume's first sector; when that fails the engine's
    // boot test, from the selected partition's recorded NTFS geometry (only for a volume that
    // starts where the selected range does). False when neither works.
    bool LoadGeometry();
    // Places the volume at another absolute media sector than the selected range's first (a
    // volume found by the record search inside a whole disk). Call before LoadGeometry.
    void SetStartSector(uint64_t sector);
    // Replaces the default cluster size by one learnt from a record (see ClusterSizeOfRecord).
    void SetClusterSize(uint32_t bytesPerCluster);
    // For searches without a usable boot sector: 4096-byte clusters, record size taken from each
    // record, the volume reaching to the end of the media's selected range.
    void UseDefaultGeometry();
    // Reads MFT record 0 (else the mirror's copy), checks it and gathers the MFT's runs, following
    // an attribute list into extension records. False when the MFT cannot be had.
    bool Open();

    // Reads `len` bytes at a volume-relative byte offset; failed or missing parts are zeros and
    // make the result false. Unaligned offsets are read through a bounce buffer.
    bool ReadVolume(uint64_t offset, void* buf, size_t len);
    // Reads `len` bytes of the MFT starting at MFT byte `mftOffset` (sparse or unmapped parts as
    // zeros). False on a read failure or when nothing of it is mapped.
    bool ReadMft(uint64_t mftOffset, uint8_t* buf, size_t len);
    // Volume byte offset of MFT byte `mftOffset`, or ~0 when unmapped.
    uint64_t MapMft(uint64_t mftOffset) const;

    bool ReadRecord(uint64_t recordNumber, std::vector<uint8_t>& out) override;
    bool ReadRunData(const std::vector<NtfsRun>& runs, uint64_t bytes, std::vector<uint8_t>& out) override;

    uint64_t VolumeStartByte() const { return m_startByte; }
    uint64_t ClusterCount() const { return m_bytesPerCluster ? m_volumeBytes / m_bytesPerCluster : 0; }
    uint32_t BytesPerCluster() const { return m_bytesPerCluster; }
    uint32_t BytesPerSector() const { return m_bytesPerSector; }
    uint32_t RecordSize() const { return m_recordSize; }
    uint32_t MediaSectorSize() const { return m_mediaSectorSize; }
    // Bytes of MFT the runs describe (limited to what the volume can hold).
    uint64_t MftBytes() const { return m_mftBytes; }
    // Progress total of the walk, from the data attribute's last VCN.
    uint64_t ExpectedRecords() const { return m_expectedRecords; }

private:
    // An MFT extent in VCN order.
    struct MftRun {
        uint64_t vcn = 0;
        uint64_t lengthClusters = 0;
        uint64_t startCluster = 0;
    };

    // Geometry from a boot sector that passed the test.
    bool SetGeometryFromBoot(Bytes sector);
    bool OpenAt(uint64_t cluster);
    bool GatherMftRuns(std::vector<uint8_t>& record0);

    CPhysicalDisk& m_media;
    uint32_t m_mediaSectorSize = 512;
    uint64_t m_startByte = 0;
    uint64_t m_volumeBytes = 0;
    // True when the size came from a boot sector or partition record (not assumed), so that runs
    // outside it can be refused.
    bool m_sizeKnown = false;
    uint32_t m_bytesPerSector = 512;
    uint32_t m_sectorsPerCluster = 8;
    uint32_t m_bytesPerCluster = 4096;
    uint32_t m_recordSize = 0;
    uint64_t m_mftCluster = 0;
    uint64_t m_mirrorCluster = 0;
    std::vector<MftRun> m_mftRuns;
    uint64_t m_mftBytes = 0;
    uint64_t m_expectedRecords = 0;
    std::vector<uint8_t> m_bounce;
};

} // namespace kestrin
