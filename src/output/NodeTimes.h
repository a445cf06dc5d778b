#pragma once
// The full times of one found item, whatever engine found it.
#include "fs/ItemTimes.h"

namespace kestrin {

class CPhysicalDisk;

// NTFS items: read from their file record through the volume they were found on; FAT and exFAT
// items: what their volume kept from the walk. False for carved items and items whose times are
// not known (a record that cannot be read any more, a tree loaded from a session).
bool ReadNodeTimes(CPhysicalDisk& media, const CNode& node, ItemTimes& out);

} // namespace kestrin
