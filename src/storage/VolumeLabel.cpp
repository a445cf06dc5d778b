#include "storage/VolumeLabel.h"

#include <vector>

#include "storage/PartitionRecord.h"
#include "util/Bytes.h"

namespace kestrin {

namespace {

// Nothing read for a label is larger than one big cluster or MFT record.
constexpr uint64_t kMaxRead = 64 * 1024;

// `len` bytes at byte `offset` of the volume starting at media sector `first`; empty on a failed
// read or a range past the media.
std::vector<uint8_t> ReadVolumeBytes(CStorageMedia& media, uint64_t first, uint64_t offset, uint64_t len) {
    uint32_t ss = media.GetSectorSize();
    if (!ss || !len || len > kMaxRead) return {};
    uint64_t sector = offset / ss, skip = offset % ss;
    uint64_t count = (skip + len + ss - 1) / ss;
    // The media's sector count is that of the selected partition, so the source's size bounds
    // the read; a short read at its end leaves zeros, which parse as nothing.
    if (first > UINT64_MAX / ss - sector) return {};
    if (media.ByteSize() && (first + sector) * ss >= media.ByteSize()) return {};
    std::vector<uint8_t> buf(count * ss);
    if (!media.ReadSectors(buf.data(), uint32_t(buf.size()), first + sector, true)) return {};
    return std::vector<uint8_t>(buf.begin() + long(skip), buf.begin() + long(skip + len));
}

bool PowerOfTwo(uint64_t v) { return v && !(v & (v - 1)); }

// An 11-byte FAT label: printable ASCII kept, other bytes taken as Latin-1, trailing blanks cut.
std::u16string FatLabel(Bytes b, size_t at) {
    if (!Fits(b, at, 11)) return {};
    std::u16string s;
    for (size_t i = 0; i < 11; ++i) s += char16_t(b[at + i]);
    while (!s.empty() && (s.back() == u' ' || s.back() == 0)) s.pop_back();
    if (s == u"NO NAME") return {};
    for (char16_t c : s)
        if (c < 0x20) return {};
    return s;
}

// The label entry of a FAT directory: not deleted, not a long-name part, volume-label bit set.
std::u16string FatRootLabel(Bytes dir) {
    for (size_t at = 0; Fits(dir, at, 32); at += 32) {
        uint8_t first = dir[at], attr = dir[at + 11];
        if (first == 0) break;
        if (first == 0xE5 || (attr & 0x0F) == 0x0F) continue;
        if ((attr & 0x08) && !(attr & 0x10)) return FatLabel(dir, at);
    }
    return {};
}

std::u16string ReadFatLabel(CStorageMedia& media, uint64_t first, Bytes boot, bool fat32) {
    uint32_t bps = ReadLe16(boot, 11).value_or(0), spc = ReadU8(boot, 13).value_or(0);
    uint32_t reserved = ReadLe16(boot, 14).value_or(0), fats = ReadU8(boot, 16).value_or(0);
    if (!PowerOfTwo(bps) || bps < 512 || bps > 4096 || !PowerOfTwo(spc)) return {};
    std::vector<uint8_t> dir;
    if (fat32) {
        uint64_t fatSize = ReadLe32(boot, 36).value_or(0), root = ReadLe32(boot, 44).value_or(0);
        if (root >= 2) {
            uint64_t sector = reserved + fats * fatSize + (root - 2) * spc;
            dir = ReadVolumeBytes(media, first, sector * bps, std::min<uint64_t>(uint64_t(spc) * bps, kMaxRead));
        }
    } else {
        uint64_t fatSize = ReadLe16(boot, 22).value_or(0), entries = ReadLe16(boot, 17).value_or(0);
        uint64_t sector = reserved + fats * fatSize;
        dir = ReadVolumeBytes(media, first, sector * bps, std::min<uint64_t>(entries * 32, kMaxRead));
    }
    std::u16string label = FatRootLabel(dir);
    if (!label.empty()) return label;
    // The boot sector's copy, behind the extended boot signature.
    size_t sig = fat32 ? 66 : 38;
    if (ReadU8(boot, sig).value_or(0) == 0x29) return FatLabel(boot, sig + 5);
    return {};
}

std::u16string ReadExFatLabel(CStorageMedia& media, uint64_t first, Bytes boot) {
    uint32_t bpsShift = ReadU8(boot, 108).value_or(0), spcShift = ReadU8(boot, 109).value_or(0);
    uint64_t heap = ReadLe32(boot, 88).value_or(0), root = ReadLe32(boot, 96).value_or(0);
    if (bpsShift < 9 || bpsShift > 12 || spcShift > 25 - bpsShift || root < 2) return {};
    uint64_t at = (heap + ((root - 2) << spcShift)) << bpsShift;
    std::vector<uint8_t> dir = ReadVolumeBytes(media, first, at, std::min<uint64_t>(1ull << (bpsShift + spcShift), kMaxRead));
    Bytes d(dir);
    for (size_t e = 0; Fits(d, e, 32); e += 32) {
        uint8_t type = d[e];
        if (type == 0) break;
        if (type != 0x83) continue;
        size_t count = std::min<size_t>(d[e + 1], 11);
        std::u16string s;
        for (size_t i = 0; i < count; ++i) s += char16_t(Le16(&d[e + 2 + 2 * i]));
        return s;
    }
    return {};
}

std::u16string ReadNtfsLabel(CStorageMedia& media, uint64_t first, Bytes boot) {
    uint32_t bps = ReadLe16(boot, 11).value_or(0), spc = ReadU8(boot, 13).value_or(0);
    if (!PowerOfTwo(bps) || bps < 256 || bps > 4096) return {};
    // Large clusters are given as a negative power of two.
    uint64_t clusterSize = spc <= 0x80 ? uint64_t(spc) * bps : (spc >= 0xF4 ? 1ull << (256 - spc) : 0);
    if (!clusterSize || clusterSize > (1ull << 21)) return {};
    int8_t perRecord = int8_t(ReadU8(boot, 64).value_or(0));
    uint64_t recordSize = perRecord > 0 ? uint64_t(perRecord) * clusterSize
                                        : (perRecord < 0 && perRecord >= -16 ? 1ull << -perRecord : 0);
    if (recordSize < 256 || recordSize > kMaxRead) return {};
    uint64_t mft = ReadLe64(boot, 48).value_or(0);
    if (!mft || mft > (UINT64_MAX / 2) / clusterSize) return {};
    // Record 3 is $Volume.
    std::vector<uint8_t> rec = ReadVolumeBytes(media, first, mft * clusterSize + 3 * recordSize, recordSize);
    Bytes r(rec);
    if (!MatchAt(r, 0, "FILE", 4)) return {};
    // Undo the update sequence: the last two bytes of every stride were replaced by its number.
    uint16_t usaAt = ReadLe16(r, 4).value_or(0), usaCount = ReadLe16(r, 6).value_or(0);
    if (usaCount < 2 || !Fits(r, usaAt, size_t(usaCount) * 2)) return {};
    uint64_t stride = recordSize / (usaCount - 1);
    if (stride < 256 || stride * (usaCount - 1) != recordSize) return {};
    for (uint16_t i = 1; i < usaCount; ++i) {
        size_t end = size_t(i * stride - 2);
        if (Le16(&rec[end]) != Le16(&rec[usaAt])) return {};
        rec[end] = rec[usaAt + 2 * i];
        rec[end + 1] = rec[usaAt + 2 * i + 1];
    }
    size_t at = ReadLe16(r, 20).value_or(0);
    while (Fits(r, at, 24)) {
        uint32_t type = Le32(&rec[at]), len = Le32(&rec[at + 4]);
        if (type == 0xFFFFFFFF || len < 24 || !Fits(r, at, len)) break;
        if (type == 0x60 && rec[at + 8] == 0) { // resident volume name
            uint32_t valueLen = Le32(&rec[at + 16]);
            uint16_t valueAt = Le16(&rec[at + 20]);
            if (valueAt > len || len - valueAt < valueLen) return {};
            std::u16string s;
            for (uint32_t i = 0; i + 1 < valueLen; i += 2) s += char16_t(Le16(&rec[at + valueAt + i]));
            return s;
        }
        at += len;
    }
    return {};
}

} // namespace

std::u16string ReadVolumeLabel(CStorageMedia& media, uint64_t firstSector, uint8_t fsKind) {
    std::vector<uint8_t> boot = ReadVolumeBytes(media, firstSector, 0, 512);
    if (boot.size() < 512) return {};
    switch (fsKind) {
    case kFsFat16: return ReadFatLabel(media, firstSector, boot, false);
    case kFsFat32: return ReadFatLabel(media, firstSector, boot, true);
    case kFsNtfs: return ReadNtfsLabel(media, firstSector, boot);
    case kFsExFat: return ReadExFatLabel(media, firstSector, boot);
    default: return {};
    }
}

} // namespace kestrin
