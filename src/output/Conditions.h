#pragma once
// Judges how recoverable the deleted files of a found tree are, volume by volume, through the
// engine of each volume root (fs/Condition.h). Runs after a file-system scan and when a session
// is opened again (sessions do not store conditions).
#include <functional>

namespace kestrin {

class CNode;
class CPhysicalDisk;

// Judges the deleted files below every volume root directly under `top` that has a handle and
// was not judged yet, reading each volume through its handle on `media`'s source. A volume whose
// allocation map cannot be had keeps its files unknown. `stop` (may be empty) is asked between
// files; a stopped volume is judged again next time.
void JudgeConditions(CPhysicalDisk& media, CNode* top, const std::function<bool()>& stop = {});

} // namespace kestrin
