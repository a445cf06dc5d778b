#pragma once
// The shape every file-system scan produces: top "_R" → volume root "." → "Lost" first, then
// the volume's own tree. Engines build scan entries and hand the volume root over here.
#include <cstdint>
#include <string>

#include "fs/CNode.h"

namespace kestrin {

// The top node "_R" (flags 3, nameLength 2); the explorer shows it as "Root".
CNode* MakeTopNode();
// A zero-filled scan entry with its name and name length set (names longer than 255 units are
// cut: the length is kept in 8 bits).
ScanEntry* NewScanEntry(std::u16string name, uint8_t flags, uint32_t recordId, uint32_t parentRecordId);
// "#%u": the name of an item without a usable name.
std::u16string RecordName(uint32_t recordId);
// The volume root "." (flags 3) with recordId = parentRecordId = rootId, and its first child
// "Lost" (flags 2, parentRecordId = rootId).
ScanEntry* MakeVolumeRoot(uint32_t rootId);
ScanEntry* LostFolderOf(ScanEntry* volumeRoot);
// Converts the volume root entry (with its tree) into nodes appended under `top`; returns the
// "." node. The entries are freed.
CNode* AttachVolume(CNode* top, ScanEntry* volumeRoot);
// The first "." child of `top`, or null.
CNode* FindVolumeRoot(const CNode* top);

} // namespace kestrin
