#pragma once
// Hand-off from the partition-table reader to the dynamic-disk (LDM) database reader. The table
// reader only recognises a dynamic disk; reading its database is the job of a separate reader,
// installed at start-up with SetLdmDatabaseReader. Until one is installed the hand-off records
// nothing, and the disk is still reported as a dynamic disk.
#include <cstdint>
#include <functional>

namespace kestrin {

class CPhysicalDisk;

// Size of the private header kept for the reader (its fixed fields end here).
constexpr size_t kPrivheadBytes = 391;

// Where a GPT dynamic disk keeps its areas, from the partition entries (absolute sectors).
struct LdmGptAreas {
    uint64_t metadataStart = 0;
    uint64_t metadataSectors = 0;
    uint64_t dataStart = 0;
    uint64_t dataLastSector = 0;
};

// `privhead` is the 391-byte private header of an MBR dynamic disk with its big-endian numbers
// already converted to host order (null on a GPT disk, whose header lies in the metadata area
// given by `gpt`). The reader adds what it finds to the disk's second partition list.
using LdmDatabaseReader = std::function<bool(CPhysicalDisk& disk, const uint8_t* privhead, const LdmGptAreas* gpt)>;

// Installs the reader (an empty function removes it). Set once at start-up, before any scan.
void SetLdmDatabaseReader(LdmDatabaseReader reader);

// Runs the installed reader; false when none is installed or it found nothing.
bool ReadLdmDatabase(CPhysicalDisk& disk, const uint8_t* privhead, const LdmGptAreas* gpt);

} // namespace kestrin
