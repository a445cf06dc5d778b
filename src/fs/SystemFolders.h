#pragma once
// The folders a file-system scan adds for its own bookkeeping rather than the user's files: the
// NTFS metadata folder "$Extend" (with everything below it) and the "Lost" folder that collects
// orphans. Views may hide them, and a save creates them only for something they hold.
#include "fs/CNode.h"

namespace kestrin {

// A volume root: the "." folder directly below the tree's top.
bool IsVolumeRootNode(const CNode* n);
// The orphan folder every volume root holds first (flags 2, record 0).
bool IsLostFolder(const CNode* n);
// "$Extend" directly in a volume root.
bool IsExtendFolder(const CNode* n);
// "$Extend", "Lost", or any folder below "$Extend".
bool IsSystemFolder(const CNode* n);

} // namespace kestrin
