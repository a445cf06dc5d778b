// Every structure walk of the scanner family on arbitrary bytes over an in-memory source: the
// record's header is laid at the start so that each walk gets past its first test, then Verify
// and FindFileSize run at the first sector and at one the input picks. Nothing may read past
// the source, loop without end or report a size beyond it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "carve/CSectorReader.h"
#include "carve/ScannerSet.h"
#include "carve/scanners/family/CASFScanner.h"
#include "carve/scanners/family/CASXScanner.h"
#include "carve/scanners/family/CDBFScanner.h"
#include "carve/scanners/family/CWMAScanner.h"
#include "carve/scanners/family/CWMVScanner.h"
#include "storage/ByteSource.h"
#include "storage/CPhysicalDisk.h"

namespace {

using namespace kestrin;

SignatureRecord Row(uint32_t typeId, const char* ext, std::vector<uint8_t> header, uint32_t offset = 0) {
    SignatureRecord r;
    r.typeId = typeId;
    r.extension = ext;
    r.header = std::move(header);
    r.headerOffset = offset;
    r.fixedSize = 1 << 20;
    return r;
}

std::vector<uint8_t> Text(const char* s, size_t n) { return {s, s + n}; }

const std::vector<SignatureRecord>& Rows() {
    static const std::vector<SignatureRecord> rows = [] {
        std::vector<SignatureRecord> v;
        const std::vector<uint8_t> ii = {'I', 'I', 42, 0}, mm = {'M', 'M', 0, 42};
        for (const char* ext : {".cr2", ".dng", ".3fr", ".k25", ".dcr", ".kdc", ".nef", ".pef", ".arw", ".sr2",
                                ".srf", ".tif", ".nrw", ".erf", ".srw"}) {
            v.push_back(Row(211, ext, ii));
            v.push_back(Row(212, ext, mm));
        }
        v.push_back(Row(208, ".orf", Text("IIRO", 4)));
        v.push_back(Row(214, ".rw2", {'I', 'I', 0x55, 0}));
        v.push_back(Row(213, ".crw", Text("II\x1A\0\0\0HEAPCCDR", 14)));
        v.push_back(Row(217, ".crw", Text("HEAPCCDR", 8), 6));
        v.push_back(Row(207, ".mrw", Text("\0MRM", 4)));
        v.push_back(Row(215, ".raf", Text("FUJIFILMCCD-RAW ", 16)));
        v.push_back(Row(216, ".x3f", Text("FOVb", 4)));
        v.push_back(Row(142, ".bmp", Text("BM", 2)));
        v.push_back(Row(517, ".cab", Text("MSCF", 4)));
        v.push_back(Row(516, ".7z", Text("7z\xBC\xAF\x27\x1C", 6)));
        v.push_back(Row(136, ".pst", Text("!BDN", 4)));
        v.push_back(Row(137, ".ost", Text("!BDN", 4)));
        v.push_back(Row(69, ".ra", Text(".ra\xFD", 4)));
        v.push_back(Row(506, ".swf", Text("FWS", 3)));
        for (uint32_t id : {15u, 3367u, 3470u, 4134u, 4234u, 5634u})
            v.push_back(Row(id, ".mp4", Text("ftyp", 4), 4));
        v.push_back(Row(62, ".mp3", Text("ID3", 3)));
        v.push_back(Row(62, ".mp3", {0xFF, 0xFB}));
        v.push_back(Row(18, ".mpg", Text("\0\0\1\xBA", 4)));
        v.push_back(Row(278, ".mts", {0x47}));
        v.push_back(Row(279, ".m2ts", {0x47}, 4));
        v.push_back(Row(2141, ".amr", Text("#!AMR\n", 6)));
        v.push_back(Row(2142, ".awb", Text("#!AMR-WB\n", 9)));
        for (uint32_t id : {4u, 68u, 510u, 511u})
            v.push_back(Row(id, ".avi", Text("RIFF", 4)));
        v.push_back(Row(4149, ".aiff", Text("FORM", 4)));
        v.push_back(Row(65, ".rm", Text(".RMF", 4)));
        v.push_back(Row(9, ".mid", Text("MThd", 4)));
        v.push_back(Row(55, ".zip", Text("PK\3\4", 4)));
        v.push_back(Row(56, ".zip", Text("PK\7\x08", 4)));
        for (const char* ext : {".docx", ".xlsx", ".pptx"})
            v.push_back(Row(95, ext, Text("PK\3\4", 4)));
        v.push_back(Row(110, ".pdf", Text("%PDF-", 5)));
        v.push_back(Row(185, ".png", Text("\x89PNG\r\n\x1A\n", 8)));
        v.push_back(Row(161, ".gif", Text("GIF89a", 6)));
        v.push_back(Row(189, ".psd", Text("8BPS", 4)));
        v.push_back(Row(32, ".arj", {0x60, 0xEA}));
        const std::vector<uint8_t> indesign = {0x06, 0x06, 0xED, 0xF5, 0xD8, 0x1D, 0x46, 0xE5,
                                               0xBD, 0x31, 0xEF, 0xE7, 0xFE, 0x74, 0xB7, 0x1D};
        for (uint32_t id : {275u, 276u, 277u})
            v.push_back(Row(id, ".indd", indesign));
        return v;
    }();
    return rows;
}

// The classes no type id selects, with a header of their own.
std::vector<std::pair<std::unique_ptr<CScanner>, SignatureRecord>> Unselected() {
    const std::vector<uint8_t> asf = {0x30, 0x26, 0xB2, 0x75, 0x8E, 0x66, 0xCF, 0x11,
                                      0xA6, 0xD9, 0x00, 0xAA, 0x00, 0x62, 0xCE, 0x6C};
    std::vector<std::pair<std::unique_ptr<CScanner>, SignatureRecord>> v;
    v.emplace_back(std::make_unique<CASFScanner>(), Row(9001, ".asf", asf));
    v.emplace_back(std::make_unique<CWMAScanner>(), Row(9002, ".wma", asf));
    v.emplace_back(std::make_unique<CWMVScanner>(), Row(9003, ".wmv", asf));
    v.emplace_back(std::make_unique<CASXScanner>(), Row(9004, ".asx", Text("<ASX", 4)));
    v.emplace_back(std::make_unique<CDBFScanner>(), Row(9005, ".dbf", {0x03}));
    return v;
}

bool HeaderOnly(uint32_t typeId) {
    for (uint32_t id : {142u, 517u, 516u, 136u, 137u, 69u, 506u, 507u, 215u})
        if (id == typeId) return true;
    return false;
}

void Exercise(CScanner& s, const SignatureRecord& r, const uint8_t* data, size_t size, uint32_t bps) {
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
        if (!HeaderOnly(r.typeId) && found > reader.BytesFrom(at * bps)) std::abort();
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
    // The second byte picks one record of the table or one of the unselected classes, so that
    // every run is one walk (twice) and stays cheap.
    const auto& rows = Rows();
    size_t pick = data[1] % (rows.size() + 5);
    if (pick < rows.size()) {
        for (auto& s : MakeScanners(rows[pick])) Exercise(*s, rows[pick], data + 2, size - 2, bps);
    } else {
        auto unselected = Unselected();
        auto& [s, r] = unselected[pick - rows.size()];
        s->SetSignature(r);
        Exercise(*s, r, data + 2, size - 2, bps);
    }
    return 0;
}
