#pragma once
// The MFT-record search that rides on the signature loop (scan kinds 1 and 3): the loop hands
// every sector it reads to the hook before any signature test, so the whole source is read once.
#include <cstdint>
#include <span>

namespace kestrin {

class CPhysicalDisk;
struct ScanContext;

class IRecordSearchHook {
public:
    virtual ~IRecordSearchHook() = default;
    // Before the first chunk; [firstSector, endSector) is the range the loop will walk.
    virtual void Prepare(CPhysicalDisk& media, uint64_t firstSector, uint64_t endSector, ScanContext& ctx) = 0;
    // One sector at absolute `sector`. `data` starts at the sector and runs to the end of the
    // loop's read buffer (so a record longer than a sector can be tested when it fits in the
    // chunk). True when the sector holds a file record: no signature is tested at it.
    virtual bool OfferSector(uint64_t sector, std::span<const uint8_t> data) = 0;
    // After the loop, also when it stopped early or a read error ended it.
    virtual void Finish(ScanContext& ctx) = 0;
};

} // namespace kestrin
