// The record search over a whole disk and the read-back of what it finds: a small valid volume
// sits 64 sectors into the disk with its boot sector gone, so the search has to place the volume
// from the records themselves. The input overwrites part of the disk (its first four bytes choose
// where) and meets the volume placement, extension records and the read-back's neighbour search.
#include <cstdint>
#include <cstring>
#include <vector>

#include "../fs/ntfs/NtfsBuilder.h"
#include "../fs/ntfs/NtfsTestSupport.h"
#include "storage/ByteSource.h"

using namespace kestrin;
using namespace kestrin::test;

namespace {

constexpr size_t kVolumeAt = 64 * 512;

std::vector<uint8_t> Template() {
    VolumeBuilder v(96);
    v.SetRecord(17, RecordBuilder(17).StdInfo().FileName(5, u"a.txt").Resident(0x80, {'a', 'b'}).Finish());
    std::vector<uint8_t> list;
    RecordBuilder::ListEntry(list, 0x30, 0, 21);
    RecordBuilder::ListEntry(list, 0x80, 0, 21);
    RecordBuilder::ListEntry(list, 0x80, 1, 22);
    v.SetRecord(20, RecordBuilder(20).StdInfo().Resident(0x20, list).Finish());
    v.SetRecord(21, RecordBuilder(21).Base(20).FileName(5, u"listed").NonResident(0x80, EncodeRuns({{1, 80}}), 8192, 0, 0).Finish());
    v.SetRecord(22, RecordBuilder(22).Base(20).NonResident(0x80, EncodeRuns({{1, 81}}), 0, 1, 1).Finish());
    v.SetRecord(23, RecordBuilder(23).StdInfo().FileName(5, u"frag.bin")
                        .NonResident(0x80, EncodeRuns({{2, 60}, {1, -5}, {3, 0, true}}), 6 * 4096, 0, 5)
                        .Finish());
    std::vector<uint8_t> volume = v.Image();
    std::fill(volume.begin(), volume.begin() + 512, 0); // no boot sector
    std::vector<uint8_t> disk(kVolumeAt + volume.size(), 0);
    std::copy(volume.begin(), volume.end(), disk.begin() + kVolumeAt);
    return disk;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::vector<uint8_t> base = Template();
    if (size < 4) return 0;
    std::vector<uint8_t> image = base;
    // Most inputs land on the MFT (the volume's clusters 0-23); some anywhere.
    uint32_t where = Le32(data);
    size_t at = (where & 0x80000000u) ? where % image.size() : kVolumeAt + where % (24 * 4096);
    size_t n = std::min(size - 4, image.size() - at);
    std::memcpy(image.data() + at, data + 4, n);

    CPhysicalDisk media;
    media.Attach(std::make_unique<MemorySource>(std::move(image)));
    media.SetSectorSize(512);
    media.SetSectorCount(base.size() / 512);
    ScanHarness h;
    NtfsSearchRecords(media, 0, media.GetSectorCount(), h.ctx);
    CNode* vol = h.Volume();
    if (!vol) return 0;
    ForEachNode(vol, [&](CNode* node) {
        if (node->IsFolder()) return;
        size_t budget = 1u << 20; // a damaged size must not make the copy run for long
        NtfsWriteContent(media, *node, [&](const uint8_t*, size_t len) {
            if (len > budget) return false;
            budget -= len;
            return true;
        });
    });
    return 0;
}
