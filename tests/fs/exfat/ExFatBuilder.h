#pragma once
// Small exFAT volumes built byte by byte in memory: 512-byte sectors, 4 KiB clusters, the FAT at
// sector 24, the cluster heap at sector 40, the allocation bitmap in cluster 2, the up-case
// table in 3 and the root folder in 4 (which starts with label, bitmap and up-case entries).
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "util/Bytes.h"

namespace kestrin::test {

struct ExFatBuilder {
    static constexpr uint32_t kRoot = 4, kClusterBytes = 4096;

    ExFatBuilder() : img(40 * 512 + 400 * kClusterBytes, 0) {
        uint8_t* b = img.data();
        std::memcpy(b + 3, "EXFAT   ", 8);
        PutLe32(b + 80, 24), PutLe32(b + 84, 8), PutLe32(b + 88, 40), PutLe32(b + 92, 400), PutLe32(b + 96, kRoot);
        b[108] = 9, b[109] = 3;
        for (uint32_t c : {2, 3, 4}) Chain({c}), MarkUsed(c);
        uint8_t* r = Cluster(kRoot);
        r[0] = 0x83, r[32] = 0x81, r[64] = 0x82;
        PutLe32(r + 52, 2), PutLe64(r + 56, 50), PutLe32(r + 84, 3);
    }
    uint64_t ClusterOffset(uint32_t c) const { return 40 * 512 + uint64_t(c - 2) * kClusterBytes; }
    uint8_t* Cluster(uint32_t c) { return img.data() + ClusterOffset(c); }
    void SetFat(uint32_t c, uint32_t v) { PutLe32(img.data() + 24 * 512 + 4 * c, v); }
    void Chain(std::initializer_list<uint32_t> cs) {
        std::vector<uint32_t> v(cs);
        for (size_t i = 0; i < v.size(); ++i) SetFat(v[i], i + 1 < v.size() ? v[i + 1] : 0xFFFFFFFF);
    }
    void MarkUsed(uint32_t c) { Cluster(2)[(c - 2) / 8] |= uint8_t(1 << ((c - 2) % 8)); }
    // A file entry set (file, stream extension, names); returns the entries written.
    static size_t Set(uint8_t* e, bool inUse, uint16_t attr, const std::u16string& name, uint32_t cluster,
                      uint64_t size, bool fatChain, uint32_t created = 0, uint32_t accessed = 0) {
        size_t names = (name.size() + 14) / 15;
        e[0] = inUse ? 0x85 : 0x05, e[1] = uint8_t(1 + names);
        PutLe16(e + 4, attr), PutLe32(e + 8, created), PutLe32(e + 16, accessed);
        e[32] = inUse ? 0xC0 : 0x40, e[33] = fatChain ? 1 : 3, e[35] = uint8_t(name.size());
        PutLe64(e + 40, size), PutLe32(e + 52, cluster), PutLe64(e + 56, size);
        for (size_t i = 0; i < name.size(); ++i) {
            uint8_t* n = e + 64 + 32 * (i / 15);
            n[0] = inUse ? 0xC1 : 0x41;
            PutLe16(n + 2 + 2 * (i % 15), name[i]);
        }
        return 2 + names;
    }

    std::vector<uint8_t> img;
};

} // namespace kestrin::test
