#pragma once
// Copying a disk, volume or partition into an image file, as both front ends prepare it: the
// checks the image file and its bad-sector map pass before the copy (never the source under any
// name, never a partition of the source disk, never a file on it, an existing file only with
// consent) and the range a chosen partition covers.
#include <string>

#include "output/OutputGuard.h"
#include "session/Source.h"

namespace kestrin {

// The map of unreadable sectors that the copy writes beside `imagePath`.
std::string BadSectorMapPath(const std::string& imagePath);

// Checks `imagePath` and its map against the opened source (and `sourcePath` as the user named
// it). The image may go onto a device, never onto the source's disk. The first refusal is
// returned; kExists means a file of that name is there and `overwrite` was not given.
OutputCheck CheckImageTarget(const OpenedSource& src, const std::string& sourcePath, const std::string& imagePath,
                             bool overwrite);

// Narrows the media to listed partition `index` (-1: the whole source) for the copy. The copy
// covers the partition's whole range as the table gives it: on a truncated image the sectors
// past the end are read as bad sectors rather than left out unnoticed. False when there is no
// such partition.
bool SelectImageRange(OpenedSource& src, int index);

} // namespace kestrin
