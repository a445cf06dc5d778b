#include "carve/scanners/family/CIndtScanner.h"

// Every rule of this member is the shared page walk with the "DOCUMENT" master page.
