#pragma once
// Small FAT16/FAT32 volumes built byte by byte in memory, 512-byte sectors and clusters.
// FAT32: 32 reserved sectors, two FATs of 8 sectors, data from sector 48. FAT16: 4 reserved
// sectors, two FATs of 4 sectors, the root region at sector 12, data after its entries (sector 44
// with the usual 512).
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "storage/PartitionRecord.h"
#include "util/Bytes.h"

namespace kestrin::test {

struct FatBuilder {
    explicit FatBuilder(FsKind fsKind, uint16_t rootEntries = 512)
        : kind(fsKind), reserved(fsKind == FsKind::Fat16 ? 4 : 32), fatSize(fsKind == FsKind::Fat16 ? 4 : 8), third(reserved + 2 * fatSize),
          data(fsKind == FsKind::Fat16 ? third + (rootEntries * 32u + 511) / 512 : third), img(size_t(data + 400) * 512, 0) {
        uint8_t* b = img.data();
        b[13] = 1, b[16] = 2, b[21] = 0xF8;
        PutLe16(b + 11, 512), PutLe16(b + 14, uint16_t(reserved)), PutLe16(b + 510, 0xAA55);
        if (kind == FsKind::Fat16) {
            PutLe16(b + 17, rootEntries), PutLe16(b + 19, uint16_t(img.size() / 512)), PutLe16(b + 22, uint16_t(fatSize));
        } else {
            PutLe32(b + 32, uint32_t(img.size() / 512)), PutLe32(b + 36, fatSize), PutLe32(b + 44, 2);
            Chain({2}); // the root folder
        }
    }
    uint64_t ClusterOffset(uint32_t c) const { return (uint64_t(data) + c - 2) * 512; }
    uint8_t* Cluster(uint32_t c) { return img.data() + ClusterOffset(c); }
    uint8_t* RootRegion() { return img.data() + uint64_t(third) * 512; }
    uint64_t FatOffset(uint32_t c) const { return uint64_t(reserved) * 512 + c * (kind == FsKind::Fat16 ? 2 : 4); }
    void SetFat(uint32_t c, uint32_t v) {
        kind == FsKind::Fat16 ? PutLe16(img.data() + FatOffset(c), uint16_t(v)) : PutLe32(img.data() + FatOffset(c), v);
    }
    // Links the clusters in order and ends the chain after the last.
    void Chain(std::initializer_list<uint32_t> cs) {
        std::vector<uint32_t> v(cs);
        for (size_t i = 0; i < v.size(); ++i) SetFat(v[i], i + 1 < v.size() ? v[i + 1] : 0x0FFFFFFF);
    }
    // A short entry; `name11` is the raw 8+3 field.
    static void Short(uint8_t* e, const char* name11, uint8_t attr, uint32_t cluster, uint32_t size = 0,
                      uint16_t created = 0, uint16_t accessed = 0, uint8_t caseByte = 0) {
        std::memcpy(e, name11, 11);
        e[11] = attr, e[12] = caseByte;
        PutLe16(e + 0x10, created), PutLe16(e + 0x12, accessed);
        PutLe16(e + 0x14, uint16_t(cluster >> 16)), PutLe16(e + 0x1A, uint16_t(cluster)), PutLe32(e + 0x1C, size);
    }
    // Long-name pieces as Windows writes them (terminator, 0xFFFF padding, last piece first),
    // then the short entry; returns the entries written.
    static size_t Long(uint8_t* e, std::u16string name, const char* short11, uint32_t cluster, uint32_t size,
                       bool deleted = false) {
        static constexpr uint8_t kAt[13] = {1, 3, 5, 7, 9, 14, 16, 18, 20, 22, 24, 28, 30};
        size_t pieces = (name.size() + 12) / 13;
        if (name.size() % 13) name += u'\0';
        for (size_t k = 0; k < pieces; ++k) {
            size_t index = pieces - 1 - k;
            uint8_t* p = e + 32 * k;
            p[0] = deleted ? 0xE5 : uint8_t((index + 1) | (k == 0 ? 0x40 : 0));
            p[11] = 0x0F;
            for (size_t i = 0; i < 13; ++i)
                PutLe16(p + kAt[i], index * 13 + i < name.size() ? name[index * 13 + i] : 0xFFFF);
        }
        Short(e + 32 * pieces, short11, 0x20, cluster, size);
        if (deleted) e[32 * pieces] = 0xE5;
        return pieces + 1;
    }
    static void Dots(uint8_t* e, uint32_t self, uint32_t parent, uint16_t created = 0) {
        Short(e, ".          ", 0x10, self, 0, created);
        Short(e + 32, "..         ", 0x10, parent);
    }

    FsKind kind;
    uint32_t reserved, fatSize, third, data;
    std::vector<uint8_t> img;
};

} // namespace kestrin::test
