#pragma once
// The engine table of the command line: every engine this build was linked with.
#include "scan/Engines.h"

namespace kestrin::cli {

// File-system scan by the media's file-system kind, the signature scan, the partition-table
// preparation of the lost-partition search and the whole-disk record search. Entries whose
// engine is not part of this build stay empty, and the driver says so when it needs them.
Engines MakeCliEngines();
// Whether the file-system scan of `fsKind` is part of this build.
bool HaveFileSystemEngine(uint8_t fsKind);

} // namespace kestrin::cli
