#include "carve/scanners/family/CMTSScanner.h"

// Every rule of this member is the shared packet walk with 188-byte packets.
