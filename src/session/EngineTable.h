#pragma once
// The engine table both front ends run scans with: every file-system engine, the signature scan,
// the partition-table preparation of the lost-partition search and the record searches.
#include "scan/Engines.h"

namespace kestrin {

Engines MakeEngines();

} // namespace kestrin
