#include "carve/scanners/family/CIndbScanner.h"

// Every rule of this member is the shared page walk with the "BOOKBOOK" master page.
