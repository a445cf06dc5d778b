#pragma once
// Moving volume roots between found-item trees: the recovery stages run an engine into a scratch
// tree first and keep its result only when it holds something.
#include "fs/CNode.h"

namespace kestrin {

// True when some node below `top` is more than an empty volume root or an empty "Lost" folder.
bool TreeHasItems(CNode* top);
// Moves every child of `from` to the end of `to`'s children.
void MoveVolumeRoots(CNode* from, CNode* to);

} // namespace kestrin
