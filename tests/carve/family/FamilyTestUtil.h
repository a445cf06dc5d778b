#pragma once
// Shared pieces of the family tests: the shipped table's records, sample files, and one scanner
// run over a small image in which the sample stands at a sector boundary between noise.
#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "carve/CSectorReader.h"
#include "carve/ScannerSet.h"
#include "carve/SignatureTable.h"
#include "storage/ByteSource.h"
#include "storage/CPhysicalDisk.h"

namespace kestrin::test {

inline std::vector<uint8_t> FamilySample(const std::string& name) {
    std::ifstream in(std::string(KESTRIN_SOURCE_DIR) + "/tests/carve/family/data/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The first record of the shipped table with this type id and extension.
inline SignatureRecord ShippedRecord(uint32_t typeId, const std::string& ext) {
    static const auto table = LoadSignatureTable(std::string(KESTRIN_SOURCE_DIR) + "/data/signatures.txt");
    if (table)
        for (const SignatureRecord& r : *table)
            if (r.typeId == typeId && r.extension == ext) return r;
    SignatureRecord none;
    none.typeId = typeId;
    none.extension = ext;
    return none;
}

struct CarveResult {
    uint64_t size = 0;
    uint64_t embeddedSize = 0, embeddedSector = 0;
    uint32_t embeddedOffset = 0;
    bool header = false;
};

constexpr uint32_t kSampleSector = 3;

// Lays `file` at sector kSampleSector of an image with random sectors before it and (unless
// `bare`) after it, and asks the record's scanners about that sector as the loop does.
inline CarveResult CarveOne(const SignatureRecord& record, const std::vector<uint8_t>& file, bool bare = false,
                            uint32_t bps = 512) {
    std::mt19937 rng(7);
    std::vector<uint8_t> image(kSampleSector * bps);
    for (auto& b : image) b = uint8_t(rng() | 1);
    image.insert(image.end(), file.begin(), file.end());
    if (!bare) {
        size_t padded = (image.size() + bps - 1) / bps * bps + 4 * bps;
        while (image.size() < padded) image.push_back(uint8_t(rng()));
    } else if (image.size() % bps) {
        image.resize((image.size() + bps - 1) / bps * bps, 0);
    }
    CPhysicalDisk disk;
    disk.Attach(std::make_unique<MemorySource>(image));
    disk.SetSectorSize(bps);
    disk.SetSectorCount(image.size() / bps);
    CSectorReader reader(disk);
    std::span<const uint8_t> sector(image.data() + kSampleSector * bps, bps);
    CarveResult out;
    for (auto& s : MakeScanners(record)) {
        s->SetReader(&reader);
        if (!s->IsHeader(sector)) continue;
        out.header = true;
        if (s->Verify(kSampleSector, sector) != 1) continue;
        out.size = s->FindFileSize(kSampleSector, sector);
        out.embeddedSize = s->GetEmbeddedSize();
        out.embeddedSector = s->GetEmbeddedSector();
        out.embeddedOffset = s->GetEmbeddedOffset();
        if (out.size || out.embeddedSize) break;
    }
    return out;
}

} // namespace kestrin::test
