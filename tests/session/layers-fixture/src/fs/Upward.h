#pragma once
#include "scan/CScanDriver.h"
