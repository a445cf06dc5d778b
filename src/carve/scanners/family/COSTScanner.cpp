#include "carve/scanners/family/COSTScanner.h"

// The offline-folders file shares every rule with the personal-folders file.
