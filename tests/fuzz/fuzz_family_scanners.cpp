// Every structure walk of the scanner family on arbitrary bytes over an in-memory source: the
// record's header is laid at the start so that each walk gets past its first test, then Verify
// and FindFileSize run at the first sector and at one the input picks. Nothing may read past
// the source, loop without end or report a size beyond it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "carve/CSectorReader.h"
#include "carve/ScannerSet.h"
#include "carve/scanners/family/CASXScanner.h"
#include "carve/scanners/family/CDBFScanner.h"
#include "carve/scanners/family/FamilyMember.h"
#include "storage/ByteSource.h"
#include "storage/CPhysicalDisk.h"

namespace {

using namespace kestrin;

SignatureRecord Row(uint32_t typeId, std::string_view ext, std::vector<uint8_t> header, uint32_t offset = 0) {
    SignatureRecord r;
    r.typeId = typeId;
    r.extension = std::string(ext);
    r.header = std::move(header);
    r.headerOffset = offset;
    r.fixedSize = 1 << 20;
    return r;
}

std::vector<uint8_t> Text(const char* s, size_t n) { return {s, s + n}; }

// A member that no type id selects is made directly; the rest through the class table.
struct Candidate {
    SignatureRecord record;
    std::unique_ptr<CScanner> (*make)() = nullptr;
    bool sizeFromHeader = false; // the size may run past the source
};

const std::vector<Candidate>& Candidates() {
    static const std::vector<Candidate> all = [] {
        std::vector<Candidate> v;
        // The members of the family tables, each with the header its record carries.
        for (const FamilyMember& m : FamilyMembers()) {
            v.push_back({Row(m.typeId, m.extension, {m.header.begin(), m.header.end()}, m.headerOffset),
                         m.typeId ? nullptr : m.make, m.sizeFromHeader});
        }
        // The members whose rules stand in classes of their own.
        v.push_back({Row(213, ".crw", Text("II\x1A\0\0\0HEAPCCDR", 14))});
        v.push_back({Row(217, ".crw", Text("HEAPCCDR", 8), 6)});
        v.push_back({Row(207, ".mrw", Text("\0MRM", 4))});
        v.push_back({Row(215, ".raf", Text("FUJIFILMCCD-RAW ", 16)), nullptr, true});
        v.push_back({Row(216, ".x3f", Text("FOVb", 4))});
        v.push_back({Row(62, ".mp3", Text("ID3", 3))});
        v.push_back({Row(62, ".mp3", {0xFF, 0xFB})});
        v.push_back({Row(18, ".mpg", Text("\0\0\1\xBA", 4))});
        v.push_back({Row(2141, ".amr", Text("#!AMR\n", 6))});
        v.push_back({Row(2142, ".awb", Text("#!AMR-WB\n", 9))});
        v.push_back({Row(4149, ".aiff", Text("FORM", 4))});
        v.push_back({Row(65, ".rm", Text(".RMF", 4))});
        v.push_back({Row(9, ".mid", Text("MThd", 4))});
        v.push_back({Row(110, ".pdf", Text("%PDF-", 5))});
        v.push_back({Row(185, ".png", Text("\x89PNG\r\n\x1A\n", 8))});
        v.push_back({Row(161, ".gif", Text("GIF89a", 6))});
        v.push_back({Row(189, ".psd", Text("8BPS", 4))});
        v.push_back({Row(32, ".arj", {0x60, 0xEA})});
        v.push_back({Row(9004, ".asx", Text("<ASX", 4)), MakeMember<CASXScanner>});
        v.push_back({Row(9005, ".dbf", {0x03}), MakeMember<CDBFScanner>});
        return v;
    }();
    return all;
}

void Exercise(CScanner& s, const Candidate& c, const uint8_t* data, size_t size, uint32_t bps) {
    const SignatureRecord& r = c.record;
    std::vector<uint8_t> bytes(data, data + size);
    if (bytes.size() < bps) bytes.resize(bps, 0);
    if (r.headerOffset + r.header.size() <= bytes.size())
        std::copy(r.header.begin(), r.header.end(), bytes.begin() + r.headerOffset);
    CPhysicalDisk disk;
    disk.Attach(std::make_unique<MemorySource>(bytes));
    disk.SetSectorSize(bps);
    disk.SetSectorCount(bytes.size() / bps);
    CSectorReader reader(disk);
    s.SetReader(&reader);
    uint64_t sectors = disk.GetSectorCount();
    for (uint64_t at : {uint64_t(0), uint64_t(size ? data[size - 1] : 0) % sectors}) {
        std::span<const uint8_t> sector(bytes.data() + at * bps, bps);
        s.IsHeader(sector);
        s.Verify(at, sector);
        uint64_t found = s.FindFileSize(at, sector);
        // A walk never reports more than the source holds from the hit on; the members whose
        // size is a header field taken as it stands (capped or not) are the exception.
        if (!c.sizeFromHeader && found > reader.BytesFrom(at * bps)) std::abort();
        s.GetEmbeddedSize();
        s.GetEmbeddedSector();
        s.GetEmbeddedOffset();
    }
    s.SetReader(nullptr);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    uint32_t bps = data[0] & 1 ? 4096 : 512;
    // The second byte picks one member, so that every run is one walk (twice) and stays cheap.
    const auto& candidates = Candidates();
    const Candidate& c = candidates[data[1] % candidates.size()];
    if (c.make) {
        auto s = c.make();
        s->SetSignature(c.record);
        Exercise(*s, c, data + 2, size - 2, bps);
    } else {
        for (auto& s : MakeScanners(c.record)) Exercise(*s, c, data + 2, size - 2, bps);
    }
    return 0;
}
