#include "storage/BootSector.h"

#include "util/Bytes.h"

namespace kestrin {

namespace {

// 2 to the power `exp`; 0 when it does not fit in 64 bits. Stored into narrower fields it then
// truncates like any out-of-range size would, and the engines reject a 0 size.
uint64_t PowerOfTwo(unsigned exp) { return exp < 64 ? uint64_t(1) << exp : 0; }

// 1, 2, 4, ..., 128.
bool IsPowerOfTwoUpTo128(uint8_t v) {
    for (unsigned e = 0; e <= 7; ++e)
        if (v == PowerOfTwo(e)) return true;
    return false;
}

// The value is 1, or non-zero and even. Used both for counts and, in the exFAT test, for a shift.
bool IsOneOrEven(uint8_t v) { return v == 1 || (v != 0 && (v & 1) == 0); }

bool IsKnownMediaDescriptor(uint8_t v) {
    switch (v) {
    case 0xFF: case 0xFE: case 0xFD: case 0xFC: case 0xFB: case 0xFA: case 0xF9: case 0xF0: case 0xF8:
        return true;
    default:
        return false;
    }
}

uint8_t U8(Bytes b, size_t at) { return ReadU8(b, at).value_or(0); }
uint16_t U16(Bytes b, size_t at) { return ReadLe16(b, at).value_or(0); }
uint32_t U32(Bytes b, size_t at) { return ReadLe32(b, at).value_or(0); }
uint64_t U64(Bytes b, size_t at) { return ReadLe64(b, at).value_or(0); }

constexpr uint16_t kBootSignature = 0xAA55;

// Cluster count as FAT16 and FAT32 compute it: the sectors after the reserved area and the FATs,
// divided by the cluster size. The root directory of FAT16 is deliberately not subtracted. A
// volume shorter than its own metadata has no clusters (the subtraction would wrap).
uint32_t FatClusterCount(uint64_t length, Bytes s, uint32_t fatSize) {
    uint64_t meta = uint64_t(U16(s, 14)) + uint64_t(U8(s, 16)) * fatSize;
    uint8_t spc = U8(s, 13);
    if (spc == 0 || length <= meta) return 0;
    return uint32_t((length - meta) / spc);
}

} // namespace

bool IsFat32BootSector(CStorageMedia&, std::span<const uint8_t> s) {
    auto bps = ReadLe16(s, 11);
    // A sector size of 0 passes on purpose; otherwise 512 or an even multiple of it.
    if (!bps || *bps % 512 != 0) return false;
    if (*bps != 512 && (*bps / 512) % 2 != 0) return false;
    if (ReadU8(s, 16) != uint8_t(2)) return false;
    auto spc = ReadU8(s, 13);
    if (!spc || !IsPowerOfTwoUpTo128(*spc)) return false;
    auto media = ReadU8(s, 21);
    if (!media || !IsKnownMediaDescriptor(*media)) return false;
    if (!IsOneOrEven(*spc)) return false;
    if (ReadLe32(s, 44) != 2u) return false;
    if (ReadLe16(s, 50) != uint16_t(6)) return false;
    if (ReadLe16(s, 48) != uint16_t(1)) return false;
    return ReadLe16(s, 510) == kBootSignature;
}

bool IsFat16BootSector(CStorageMedia&, std::span<const uint8_t> s) {
    // The high half of the 32-bit total must be non-zero: volumes below 65,536 sectors fail.
    if (!Fits(s, 34, 2) || (s[34] == 0 && s[35] == 0)) return false;
    // Bytes 57..60 lie inside the file-system type text ("FAT16   ").
    if (!Fits(s, 57, 4) || (s[57] == 0 && s[58] == 0 && s[59] == 0 && s[60] == 0)) return false;
    auto bps = ReadLe16(s, 11);
    if (!bps || *bps % 512 != 0) return false;
    if (ReadU8(s, 16) != uint8_t(2)) return false;
    auto spc = ReadU8(s, 13);
    if (!spc || !IsPowerOfTwoUpTo128(*spc)) return false;
    auto media = ReadU8(s, 21);
    if (!media || !IsKnownMediaDescriptor(*media)) return false;
    if (!IsOneOrEven(*spc)) return false;
    if (ReadLe16(s, 17) != uint16_t(512)) return false;
    auto reserved = ReadLe16(s, 14);
    if (!reserved || *reserved == 0) return false;
    return ReadLe16(s, 510) == kBootSignature;
}

bool IsNtfsBootSector(CStorageMedia&, std::span<const uint8_t> s) {
    if (!Fits(s, 0, 80)) return false;
    if (s[0] == 0 || s[1] == 0 || s[2] != 0x90) return false;
    if (Le32(&s[32]) != 0) return false;
    if (s[36] != 0x80 || s[37] != 0x00) return false;
    if (Le16(&s[11]) & 1) return false;
    if (!IsOneOrEven(s[13])) return false;
    if (!IsOneOrEven(s[64]) || !IsOneOrEven(s[68])) return false;
    for (size_t at : {48, 56, 40}) {
        uint64_t v = Le64(&s[at]);
        if (v == 0 || v == ~uint64_t(0)) return false;
    }
    return true;
}

bool IsExFatBootSector(CStorageMedia&, std::span<const uint8_t> s) {
    if (!Fits(s, 0, 110)) return false;
    if (s[0] == 0 || s[2] != 0x90) return false;
    if (s[108] == 0) return false;
    // The cluster shift is tested as if it were a count: shifts 3, 5 and 7 fail. Kept as is,
    // since which volumes are found depends on it.
    return IsOneOrEven(s[109]);
}

void FillFat16Record(std::span<const uint8_t> s, PartitionRecord& r) {
    r.sectorsPerCluster = U8(s, 13);
    r.fatSize = U16(s, 22);
    uint16_t total16 = U16(s, 19);
    r.length = total16 ? total16 : U32(s, 32);
    r.fatStart = U16(s, 14);
    r.secondArea = r.fatStart + r.fatSize;
    r.thirdArea = r.secondArea + r.fatSize;
    r.clusterCount = FatClusterCount(r.length, s, r.fatSize);
}

void FillFat32Record(std::span<const uint8_t> s, PartitionRecord& r) {
    r.sectorsPerCluster = U8(s, 13);
    r.fatSize = U32(s, 36);
    r.fatStart = U16(s, 14);
    r.secondArea = r.fatStart + r.fatSize;
    r.thirdArea = r.secondArea + r.fatSize;
    // The length is the table's (a GPT record's last sector enters the count as it is).
    r.clusterCount = FatClusterCount(r.length, s, r.fatSize);
}

void FillNtfsRecord(CStorageMedia& media, std::span<const uint8_t> s, PartitionRecord& r) {
    r.volumeSerial = U64(s, 72);
    uint16_t bootBps = U16(s, 11);
    uint32_t bps = (bootBps != 0 && bootBps % 512 == 0) ? bootBps : media.GetSectorSize();
    r.bytesPerSector = uint16_t(bps);
    r.sectorsPerCluster = U8(s, 13);
    r.bytesPerCluster = uint32_t(r.sectorsPerCluster) * bps;

    // A negative count means 2^|value| bytes; a positive one counts clusters.
    auto recordGeometry = [&](int8_t value, uint64_t& sizeBytes, uint8_t& sectors) {
        if (value < 0) {
            sizeBytes = PowerOfTwo(unsigned(-int(value)));
            sectors = uint8_t(bps ? sizeBytes / bps : 0);
        } else {
            sectors = uint8_t(unsigned(value) * r.sectorsPerCluster);
            sizeBytes = uint64_t(sectors) * bps;
        }
    };
    uint64_t indexSize = 0, mftSize = 0;
    recordGeometry(int8_t(U8(s, 68)), indexSize, r.sectorsPerIndexRecord);
    r.indexRecordSize = uint32_t(indexSize);
    recordGeometry(int8_t(U8(s, 64)), mftSize, r.sectorsPerMftRecord);
    r.mftRecordSize = uint16_t(mftSize);

    r.secondArea = U64(s, 48);
    r.thirdArea = U64(s, 56);
}

void FillExFatRecord(CStorageMedia& media, std::span<const uint8_t> s, PartitionRecord& r) {
    r.volumeSerial = U32(s, 100);
    uint8_t bpsShift = U8(s, 108);
    uint64_t bps = bpsShift ? PowerOfTwo(bpsShift) : media.GetSectorSize();
    uint64_t spc = PowerOfTwo(U8(s, 109));
    r.bytesPerSector = uint16_t(bps);
    // The record's cluster size field is 8 bits; large exFAT clusters (256 sectors and more) do
    // not fit, so the product and the root sector are computed from the untruncated value.
    r.sectorsPerCluster = uint8_t(spc);
    r.bytesPerCluster = uint32_t(bps * spc);
    r.clusterCount = U32(s, 92);
    r.thirdArea = (uint64_t(U32(s, 96)) - 2) * spc + U32(s, 88);
    r.fatStart = U32(s, 80);
    r.fatSize = U32(s, 84);
}

} // namespace kestrin
