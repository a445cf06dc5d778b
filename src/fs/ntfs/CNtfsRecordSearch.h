#pragma once
// The search for NTFS file and index records in raw sectors, for volumes whose MFT is gone: every
// "FILE" record that passes the check is parsed like in the MFT walk, every "INDX" record names
// folders, and the tree is rebuilt from what survives. It serves the whole-range record search
// and, as the signature loop's record-search hook, a search that shares the loop's reads.
//
// A search over a whole disk meets records of volumes that start anywhere on it. Each surviving
// copy of an MFT's own record ($MFT, record 0, in the MFT or its mirror) gives the MFT's runs and
// cluster size; the records found vote for where the volume must start for their record numbers
// to lie where they were found. Files then read their clusters from their own volume: the found
// node keeps in startOffset how many sectors its record lies past its volume's first sector.
// Base records with an attribute list are parsed at the end, once every extension record the
// search met is known.
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <vector>

#include "fs/ntfs/CNtfsTreeBuilder.h"

namespace kestrin {

class CPhysicalDisk;

class CNtfsRecordSearch final {
public:
    // A volume placed from the records found: its first byte on the media, its cluster and record
    // sizes, and its MFT's extents (media bytes).
    struct FoundVolume {
        uint64_t startByte = 0;
        uint32_t bytesPerCluster = 0;
        uint32_t recordSize = 0;
        struct Extent {
            uint64_t firstByte, bytes;
        };
        std::vector<Extent> mft;
        uint32_t votes = 0;
        bool Holds(uint64_t byte) const;
    };

    CNtfsRecordSearch();
    ~CNtfsRecordSearch();

    // The media records are read from (non-resident attribute lists) and whose sector size and
    // partition lists place them. Without one, lists in clusters are out of reach.
    void SetMedia(CPhysicalDisk* media);
    // Counts the files it lists into `found` as they come (for the progress display).
    void CountInto(FoundCounts* found);
    // Examines a possible record at the start of `data`, which lies `byteInSector` bytes into
    // absolute media sector `sector`. Returns the bytes the record covers when one was taken, else 0.
    size_t Offer(uint64_t sector, std::span<const uint8_t> data, uint32_t byteInSector = 0);
    // Attaches the rebuilt tree under `top` as "." and starts over.
    void AttachTo(CNode* top);
    // The volumes placed by the last AttachTo (exposed for tests).
    const std::vector<FoundVolume>& Volumes() const { return m_volumes; }

private:
    FoundCounts* m_found = nullptr;
    struct Held {
        uint64_t byte = 0; // absolute media byte of the record
        std::vector<uint8_t> record;
    };
    class CFoundRecordSource;
    void Reset();
    void PlaceVolumes();
    const FoundVolume* VolumeAt(uint64_t byte) const;
    // First byte of the volume a record at `byte` belongs to: a placed volume, else the nearest
    // NTFS partition the media lists before it, else the selected range; kUnknownStart without
    // a media.
    static constexpr uint64_t kUnknownStart = ~0ull;
    uint64_t VolumeStartOf(uint64_t byte) const;

    std::unique_ptr<CNtfsTreeBuilder> m_builder;
    std::vector<uint8_t> m_copy;
    NtfsRecordExtras m_extras;
    CPhysicalDisk* m_media = nullptr;
    uint32_t m_sectorSize = 512;
    // Record number and media byte of every numbered base record (the votes).
    std::vector<std::pair<uint32_t, uint64_t>> m_seen;
    std::vector<Held> m_mftCopies;
    std::vector<Held> m_extensions;
    std::multimap<uint32_t, size_t> m_extensionByNumber;
    std::vector<Held> m_deferred;
    size_t m_heldBytes = 0;
    std::vector<FoundVolume> m_volumes;
};

} // namespace kestrin
