#pragma once
// Scan events nobody watches: for running an engine outside the driver and its window (tests,
// fuzz targets, benchmarks). Progress calls are only counted.
#include "job/ScanOperation.h"

namespace kestrin {

class QuietScanEvents final : public IScanEvents {
public:
    void OnEnd() override {}
    void OnProgress() override { ++progressCalls; }
    void OnSignatureScanStart() override {}
    int progressCalls = 0;
};

} // namespace kestrin
