// Whole-volume scan, record search, content read-back and condition judging over an in-memory volume. The input
// overwrites part of a small valid volume (its first four bytes choose where), so the walk gets
// past the boot sector and the MFT and meets damaged records, runs and attribute lists.
#include <cstdint>
#include <cstring>
#include <vector>

#include "../fs/ntfs/NtfsBuilder.h"
#include "../fs/ntfs/NtfsTestSupport.h"
#include "storage/ByteSource.h"

using namespace kestrin;
using namespace kestrin::test;

namespace {

std::vector<uint8_t> Template() {
    VolumeBuilder v(96);
    v.SetRecord(16, RecordBuilder(16, 3).StdInfo().FileName(5, u"Docs").IndexRoot(IndexEntry(17, 16, u"a", false)).Finish());
    v.SetRecord(17, RecordBuilder(17).StdInfo().FileName(16, u"a.txt").Resident(0x80, {'a', 'b'}).Finish());
    v.SetRecord(18, RecordBuilder(18, 0).StdInfo().FileName(40, u"frag.bin")
                        .NonResident(0x80, EncodeRuns({{2, 60}, {1, -5}, {3, 0, true}}), 6 * 4096, 0, 5)
                        .Finish());
    v.SetRecord(19, RecordBuilder(19).StdInfo().FileName(5, u"packed")
                        .NonResident(0x80, EncodeRuns({{1, 70}, {15, 0, true}}), 4096, 0, 15, 1, 4)
                        .Finish());
    std::vector<uint8_t> list;
    RecordBuilder::ListEntry(list, 0x30, 0, 21);
    RecordBuilder::ListEntry(list, 0x80, 0, 21);
    RecordBuilder::ListEntry(list, 0x80, 1, 22);
    v.SetRecord(20, RecordBuilder(20).StdInfo().Resident(0x20, list).Finish());
    v.SetRecord(21, RecordBuilder(21).Base(20).FileName(5, u"listed").NonResident(0x80, EncodeRuns({{1, 80}}), 8192, 0, 0).Finish());
    v.SetRecord(22, RecordBuilder(22).Base(20).NonResident(0x80, EncodeRuns({{1, 81}}), 0, 1, 1).Finish());
    // The cluster bitmap and a deleted file for the judging of conditions.
    v.SetRecord(6, RecordBuilder(6).StdInfo().FileName(5, u"$Bitmap").NonResident(0x80, EncodeRuns({{1, 85}}), 16).Finish());
    v.PutCluster(85, {0xFF, 0xFF, 0xFF, 0x0F});
    v.SetRecord(23, RecordBuilder(23, 0).StdInfo().FileName(5, u"gone.bin")
                        .NonResident(0x80, EncodeRuns({{2, 26}, {2, 60}}), 4 * 4096, 0, 3)
                        .Finish());
    v.PutCluster(70, {0x05, 0xB0, 0x08, 'a', 'b', 'c', 0x06, 0x20, 0x00, 0x00});
    v.PutCluster(50, IndexRecord({IndexEntry(30, 16, u"Sub", true), IndexEntry(31, 30, u"Deeper", true)}));
    return v.Image();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::vector<uint8_t> base = Template();
    if (size < 4) return 0;
    std::vector<uint8_t> image = base;
    // Most inputs land in the boot sector or the MFT (clusters 0-19); some anywhere.
    uint32_t where = Le32(data);
    size_t at = (where & 0x80000000u) ? where % image.size() : where % (20 * 4096);
    size_t n = std::min(size - 4, image.size() - at);
    std::memcpy(image.data() + at, data + 4, n);

    CPhysicalDisk media;
    media.Attach(std::make_unique<MemorySource>(std::move(image)));
    media.SetSectorSize(512);
    media.SetSectorCount(base.size() / 512);
    for (int pass = 0; pass < 2; ++pass) {
        ScanHarness h;
        if (pass == 0)
            NtfsScanVolume(media, 1, h.ctx);
        else
            NtfsSearchRecords(media, 0, media.GetSectorCount(), h.ctx);
        CNode* vol = h.Volume();
        if (!vol) continue;
        if (pass == 0) NtfsJudgeConditions(media, *vol, {});
        ForEachNode(vol, [&](CNode* node) {
            if (node->IsFolder()) return;
            size_t budget = 1u << 20; // a damaged size must not make the copy run for long
            NtfsWriteContent(media, *node, [&](const uint8_t*, size_t len) {
                if (len > budget) return false;
                budget -= len;
                return true;
            });
        });
    }
    return 0;
}
