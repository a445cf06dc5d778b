// Every scanner's Verify and FindFileSize on arbitrary sectors of an in-memory source, and the
// whole signature loop over it.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "job/QuietScanEvents.h"
#include "carve/CSectorReader.h"
#include "carve/ScanSignatures.h"
#include "carve/ScannerSet.h"
#include "fs/CNode.h"
#include "fs/VolumeTree.h"
#include "job/ScanContext.h"
#include "storage/ByteSource.h"
#include "storage/CPhysicalDisk.h"

namespace {

using namespace kestrin;

using NoEvents = QuietScanEvents;

SignatureRecord Row(uint32_t typeId, const char* ext, std::vector<uint8_t> header, uint32_t user = 0,
                    uint32_t offset = 0) {
    SignatureRecord r;
    r.typeId = typeId;
    r.extension = ext;
    r.header = std::move(header);
    r.userDefined = user;
    r.headerOffset = offset;
    r.fixedSize = 4096;
    return r;
}

const std::vector<SignatureRecord>& Rows() {
    static const std::vector<SignatureRecord> rows = {
        Row(11, ".jpg", {0xFF, 0xD8, 0xFF}),
        Row(235, ".doc", {0xD0, 0xCF, 0x11, 0xE0}),
        Row(235, ".xls", {0xD0, 0xCF, 0x11, 0xE0}),
        Row(501, ".ppt", {0xD0, 0xCF, 0x11, 0xE0}),
        Row(1001, ".mp3", {'I', 'D', '3'}, 1),
        Row(1002, ".usr", {'U', 'S'}, 1, 300),
    };
    return rows;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    // The first byte picks the sector size (512 or 4096) and the sectors scanners start at.
    uint32_t bps = data[0] & 1 ? 4096 : 512;
    std::vector<uint8_t> bytes(data + 1, data + size);
    if (bytes.size() < bps) bytes.resize(bps, 0);
    CPhysicalDisk disk;
    disk.Attach(std::make_unique<MemorySource>(bytes));
    disk.SetSectorSize(bps);
    disk.SetSectorCount(bytes.size() / bps);

    CSectorReader reader(disk);
    uint64_t sectors = disk.GetSectorCount();
    for (const SignatureRecord& r : Rows()) {
        for (auto& s : MakeScanners(r)) {
            s->SetReader(&reader);
            for (uint64_t at : {uint64_t(0), uint64_t(data[0] >> 1) % sectors}) {
                std::span<const uint8_t> sector(bytes.data() + at * bps, bps);
                s->IsHeader(sector);
                if (s->Verify(at, sector) == 1) {
                    s->FindFileSize(at, sector);
                    s->GetEmbeddedSize();
                }
            }
        }
    }

    ScanOperation op;
    op.state = OperationState::Running;
    NoEvents events;
    PauseGate gate;
    std::unique_ptr<CNode> top(MakeTopNode());
    std::vector<SignatureRecord> rows = Rows();
    ScanContext ctx{op, events, gate, RecoveryMode::LostFiles, top.get(), &rows};
    ScanSignatures(disk, 2, 0, sectors, ctx);
    // Read every carved item back.
    ForEachNode(top.get(), [&](CNode* n) {
        if (!n->IsFolder() && n->size < (64u << 20)) CarvedWriteContent(disk, *n, [](const uint8_t*, size_t) { return true; });
    });
    return 0;
}
