#pragma once
// Writes one found item's content through the engine that found it: carved items as one byte
// range, file-system items by the file-system kind of the media's selected volume.
#include "fs/Content.h"

namespace kestrin {

// False in `ok` when the engine for this item is not part of this build, a read failed, or the
// content reaches past the end of the source (those bytes count as unreadable).
ContentResult WriteNodeContent(CPhysicalDisk& media, const CNode& node, const ContentSink& sink);

} // namespace kestrin
