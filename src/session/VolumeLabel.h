#pragma once
// The name a volume carries, for the drive-selection page: NTFS from the $Volume record's
// volume-name attribute, exFAT from the root directory's label entry, FAT12, FAT16 and FAT32 from the
// root directory's label entry, else from the boot sector's label field.
#include <cstdint>
#include <string>

#include "storage/CStorageMedia.h"
#include "storage/PartitionRecord.h"

namespace kestrin {

// Reads the volume whose boot sector is media sector `firstSector`, of file-system kind `fsKind`.
// Empty when the volume has no label or its structures do not parse; reads at most a few sectors.
std::u16string ReadVolumeLabel(CStorageMedia& media, uint64_t firstSector, FsKind fsKind);

} // namespace kestrin
