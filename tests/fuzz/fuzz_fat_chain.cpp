// Cluster chains: the input is the FAT itself (FAT12, FAT16 or FAT32 by the first byte); every
// chain from the first clusters is followed, and file content is read in use and deleted.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fs/CNode.h"
#include "fs/fat/CFatVolume.h"
#include "fs/fat/FatEngine.h"
#include "storage/ByteSource.h"

using namespace kestrin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const FsKind kind = data[0] & 2 ? FsKind::Fat12 : data[0] & 1 ? FsKind::Fat32 : FsKind::Fat16;
    std::vector<uint8_t> image(16384, 0);
    // The FAT at byte 512; clusters of 512 bytes from byte 8192.
    std::copy(data + 1, data + std::min<size_t>(size, 1 + 7680), image.begin() + 512);
    CPhysicalDisk media;
    media.Attach(std::make_unique<MemorySource>(std::move(image)));
    media.SetSectorSize(512);
    CFatVolume vol(media);
    FatGeometry g;
    g.fsKind = kind;
    g.mediaSectorSize = 512;
    g.volumeEnd = 16384;
    g.fatStart = 512;
    g.fatBytes = 7680;
    g.dataStart = 8192;
    g.clusterBytes = 512;
    g.highestCluster = kind == FsKind::Fat32 ? 1900 : 3000;
    g.rootCluster = kind == FsKind::Fat32 ? 2 : 1;
    vol.SetGeometry(g);
    for (uint32_t first = 0; first < 40; ++first) {
        auto chain = vol.FollowChain(first, 1u << 20);
        if (chain.size() > g.highestCluster) __builtin_trap();
        CNode node;
        node.recordId = first;
        node.size = uint64_t(data[1]) * 700 + first;
        node.flags = uint16_t(first & 1);
        FatWriteContent(vol, node, [](const uint8_t*, size_t) { return true; });
    }
    return 0;
}
