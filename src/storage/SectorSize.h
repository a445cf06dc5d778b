#pragma once
// Which sector size a source is read with. Image files do not say it outside their bytes, so it
// is taken from what those bytes declare: a GPT header lies in the second sector, a volume's boot
// sector states its own sector size, and an MBR's entries point at boot sectors that do.
#include <cstdint>

#include "storage/ByteSource.h"

namespace kestrin {

// The sector sizes sources are read with: 512, 1024, 2048 and 4096 bytes.
bool IsSupportedSectorSize(uint32_t bytes);

// The sector size the source's own bytes declare, 0 when they declare none (the caller then
// reads 512-byte sectors). In order:
// - a GPT header ("EFI PART") at byte 512, 1024, 2048 or 4096: a disk of that sector size;
// - a volume boot sector at byte 0 (NTFS, FAT, exFAT): its bytes per sector;
// - an MBR whose first data entry, read with 512-byte sectors, points at no boot sector, but
//   read with a larger size points at a boot sector declaring that size.
uint32_t DeclaredSectorSize(ByteSource& source);

} // namespace kestrin
