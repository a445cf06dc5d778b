#pragma once
// The search for NTFS file and index records in raw sectors, for volumes whose MFT is gone: every
// "FILE" record that passes the check is parsed like in the MFT walk, every "INDX" record names
// folders, and the tree is rebuilt from what survives. It serves the whole-range record search
// and, as the signature loop's record-search hook, a search that shares the loop's reads.
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "carve/RecordSearchHook.h"
#include "fs/ntfs/CNtfsTreeBuilder.h"

namespace kestrin {

class CNtfsRecordSearch final : public IRecordSearchHook {
public:
    CNtfsRecordSearch();
    ~CNtfsRecordSearch() override;

    void Prepare(CPhysicalDisk& media, uint64_t firstSector, uint64_t endSector, ScanContext& ctx) override;
    bool OfferSector(uint64_t sector, std::span<const uint8_t> data) override;
    void Finish(ScanContext& ctx) override;

    // Examines a possible record at the start of `data`, which lies at absolute media sector
    // `sector`. Returns the bytes the record covers when one was taken, else 0.
    size_t Offer(uint64_t sector, std::span<const uint8_t> data);
    // Attaches the rebuilt tree under `top` as "." and starts over.
    void AttachTo(CNode* top);

private:
    std::unique_ptr<CNtfsTreeBuilder> m_builder;
    std::vector<uint8_t> m_copy;
};

} // namespace kestrin
