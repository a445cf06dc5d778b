#include "fs/ntfs/NtfsEngine.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "fs/ntfs/CNtfsRecordSearch.h"
#include "fs/ntfs/CNtfsTreeBuilder.h"
#include "fs/ntfs/CNtfsVolume.h"
#include "fs/ntfs/NtfsTimes.h"
#include "fs/VolumeHandle.h"
#include "storage/PartitionTable.h"
#include "storage/SplitRead.h"

namespace kestrin {

using namespace layout::ntfs;

namespace {

// The record search reads the range in steps of this many bytes.
constexpr uint32_t kSearchStepBytes = 4u << 20;

// Checks and parses one "FILE" record copy of the MFT and hands what it yields to the builder.
// False when the record is malformed; records formatted but never used are not. Extension
// records are left to their base.
bool TakeRecord(std::span<uint8_t> rec, uint32_t recordSize, uint32_t runningIndex, uint64_t location,
                INtfsRecordSource* source, CNtfsTreeBuilder& builder, NtfsRecordExtras& extras,
                KeptTimes* times) {
    if (file_record::BaseRecord::At(rec.data()) != 0) return true;
    NtfsRecordCheck check = ExamineFileRecord(rec, recordSize);
    if (check != NtfsRecordCheck::Sound) return check == NtfsRecordCheck::Unused;
    auto* e = new (std::nothrow) ScanEntry;
    if (!e) return true;
    if (!ParseFileRecord(rec.first(recordSize), *e, runningIndex, source, &extras)) {
        delete e;
        return true;
    }
    e->location = location;
    if (ItemTimes t; times && NtfsRecordTimes(rec.first(recordSize), t)) times->SetRecord(e->recordId, t);
    builder.AddRecord(e, extras);
    return true;
}

} // namespace

Outcome NtfsScanVolume(CPhysicalDisk& media, int /*mode*/, ScanContext& ctx) {
    WalkWatch watch(media);
    CNtfsVolume vol(media);
    if (!vol.LoadGeometry() || !vol.Open()) return watch.Finish(ctx, true);
    CNtfsTreeBuilder builder;
    if (!builder.Ok()) return watch.Finish(ctx, true);
    builder.CountInto(&ctx.op.found);

    const uint32_t recordSize = vol.RecordSize();
    const uint32_t sectorsPerRecord = std::max<uint32_t>(1, recordSize / vol.BytesPerSector());
    const uint32_t batch = std::max<uint32_t>(1, 128 / sectorsPerRecord);
    const uint64_t records = std::min<uint64_t>(vol.MftBytes() / recordSize, 1ull << 32);
    const int64_t total = int64_t(vol.ExpectedRecords());
    const uint32_t mediaSector = vol.MediaSectorSize();
    std::vector<uint8_t> buffer(size_t(batch) * recordSize);
    // The items' full times, by record number, when the front end will want them.
    KeptTimes kept;
    const bool keepTimes = ctx.op.keepTimes.load(std::memory_order_relaxed);
    if (keepTimes) kept.LimitRecords(records);
    // Set when a record was skipped as malformed: one that failed its check, or one the file
    // system itself marked bad.
    bool corrupt = false;
    NtfsRecordExtras extras;

    for (uint64_t first = 0; first < records; first += batch) {
        if (ctx.MustStop(media)) break;
        uint32_t n = uint32_t(std::min<uint64_t>(batch, records - first));
        // What could not be read stays zeros, which hold no record; a source that went away ends
        // the walk at the next test instead of parsing zeros to the end of the MFT.
        vol.ReadMft(first * recordSize, buffer.data(), size_t(n) * recordSize);
        if (media.DeviceGone()) break;
        bool stopped = false;
        for (uint32_t k = 0; k < n; ++k) {
            if (ctx.MustStop(media)) {
                stopped = true;
                break;
            }
            uint64_t index = first + k;
            std::span<uint8_t> rec(buffer.data() + size_t(k) * recordSize, recordSize);
            const bool bad = file_record::Magic::Is(rec, file_record::kBadMagic);
            if (!bad && !file_record::Magic::Is(rec, file_record::kMagic)) continue;
            uint64_t at = vol.MapMft(index * recordSize);
            if (at == ~0ull) continue;
            uint64_t location = (vol.VolumeStartByte() + at) / mediaSector;
            KeptTimes* times = keepTimes ? &kept : nullptr;
            if (bad || !TakeRecord(rec, recordSize, uint32_t(index), location, &vol, builder, extras, times)) corrupt = true;
        }
        ctx.Progress(int64_t(first + n), total);
        if (stopped) break;
    }
    CNode* root = builder.Finish(ctx.top);
    if (root && keepTimes) KeepTimes(*root, media, std::move(kept));
    return watch.Finish(ctx, corrupt);
}

Outcome NtfsSearchRecords(CPhysicalDisk& media, uint64_t firstSector, uint64_t endSector, ScanContext& ctx) {
    WalkWatch watch(media);
    CNtfsRecordSearch search;
    search.SetMedia(&media);
    search.CountInto(&ctx.op.found);
    const uint32_t mediaSector = media.GetSectorSize() ? media.GetSectorSize() : 512;
    const uint64_t base = media.GetFirstSector();
    // Each step is handed its sectors and, after them, up to one largest record more, so that a
    // record that starts near the end of a step is still seen whole. Those sectors begin the next
    // step: they are moved there, not read again.
    const uint32_t tailSectors = (kNtfsMaxRecordBytes + mediaSector - 1) / mediaSector;
    const uint32_t stepSectors = std::max<uint32_t>(1, kSearchStepBytes / mediaSector);
    const uint64_t rangeSectors = endSector > firstSector ? endSector - firstSector : 0;
    std::vector<uint8_t> buffer(size_t(std::min<uint64_t>(uint64_t(stepSectors) + tailSectors, rangeSectors)) * mediaSector);
    const int64_t total = int64_t(rangeSectors);
    uint64_t carried = 0; // sectors at the start of the buffer already read for this step
    CSplitReader split(media);

    for (uint64_t s = firstSector; s < endSector; s += stepSectors) {
        if (ctx.MustStop(media)) break;
        uint64_t n = std::min<uint64_t>(stepSectors, endSector - s);
        uint64_t readSectors = std::min<uint64_t>(n + tailSectors, endSector - s);
        size_t readBytes = size_t(readSectors * mediaSector);
        bool readOk = true;
        if (carried < readSectors) {
            uint8_t* at = buffer.data() + size_t(carried) * mediaSector;
            const size_t want = readBytes - size_t(carried) * mediaSector;
            const uint64_t pastEndBefore = media.BytesPastEnd();
            readOk = split.Read(at, uint32_t(want), base + s + carried);
            // What lies past the source's end does not come back: it reads as zeros.
            const size_t missing = size_t(std::min<uint64_t>(media.BytesPastEnd() - pastEndBefore, want));
            if (readOk && missing) std::memset(at + want - missing, 0, missing);
        }
        carried = 0;
        if (readOk) {
            // Every 512-byte position can start a record, whatever the sector size.
            const size_t chunkBytes = size_t(n * mediaSector);
            for (size_t off = 0; off < chunkBytes; off += kNtfsFixupBlock) {
                size_t taken = search.Offer(base + s + off / mediaSector,
                                            std::span<const uint8_t>(buffer.data() + off, readBytes - off),
                                            uint32_t(off % mediaSector));
                if (taken > kNtfsFixupBlock) off += taken - kNtfsFixupBlock; // the whole record was examined
            }
            if (readSectors > n) {
                carried = readSectors - n;
                std::memmove(buffer.data(), buffer.data() + chunkBytes, size_t(carried) * mediaSector);
            }
        }
        ctx.Progress(int64_t(s + n - firstSector), total, mediaSector);
    }
    search.AttachTo(ctx.top);
    return watch.Finish(ctx);
}

} // namespace kestrin
