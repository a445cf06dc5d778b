#include "carve/scanners/family/CInddScanner.h"

// Every rule of this member is the shared page walk with the "DOCUMENT" master page.
