#include "carve/scanners/family/CM2TSScanner.h"

// Every rule of this member is the shared packet walk with 192-byte packets.
