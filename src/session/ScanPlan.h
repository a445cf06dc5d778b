#pragma once
// What both front ends decide the same way around a scan of an opened source: the operation a
// chosen partition gets, the file system a scan found written back to the partition list, and
// the numbered list after a lost-partition search.
#include <cstddef>
#include <cstdint>
#include <optional>

#include "job/ScanOperation.h"

#include "session/Source.h"

namespace kestrin {

// The operation listed partition `index` gets in `mode` instead of the one its source kind calls
// for, or none: the smart scan of a partition whose boot sector failed its test (partition mode),
// the search for the previous file system of a chosen partition (formatted mode).
std::optional<OperationKind> ForcedKindFor(RecoveryMode mode, const PartitionRecord& chosen);

// After a scan of listed partition `index` run with `forcedKind` (or none): when the smart scan or
// the previous-file-system search decided which file system the range holds, the list entry
// takes it, so that choosing the partition again (to save or read what was found) reads through
// the same engine. Also for a table-only partition the file-system stage read the same way.
void TakeDetectedFileSystem(OpenedSource& src, size_t index, std::optional<OperationKind> forcedKind);

// The numbered list after a lost-partition search: the table's entries, then the second list
// (which now holds the found partitions too).
void RefreshPartitionList(OpenedSource& src);

} // namespace kestrin
