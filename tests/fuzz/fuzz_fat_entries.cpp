// FAT directory entry parsing: the input is a folder's bytes (after a byte that picks the walk
// mode and the folder's state), cut into clusters, parsed as FAT12, FAT16 and FAT32.
#include <cstddef>
#include <cstdint>
#include <span>

#include "fs/fat/CFatWalker.h"
#include "fs/VolumeTree.h"
#include "storage/ByteSource.h"

using namespace kestrin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const int mode = data[0] % 3;
    std::span<const uint8_t> bytes(data + 1, size - 1);
    CPhysicalDisk media;
    media.Attach(std::make_unique<MemorySource>(std::vector<uint8_t>(64 * 1024, 0)));
    media.SetSectorSize(512);
    for (FsKind kind : {FsKind::Fat12, FsKind::Fat16, FsKind::Fat32}) {
        CFatVolume vol(media);
        FatGeometry g;
        g.fsKind = kind;
        g.mediaSectorSize = 512;
        g.volumeEnd = 64 * 1024;
        g.fatStart = 512;
        g.fatBytes = 4096;
        g.dataStart = 8192;
        g.clusterBytes = 512;
        g.highestCluster = 100;
        g.rootCluster = kind == FsKind::Fat32 ? 2 : 1;
        vol.SetGeometry(g);
        ScanEntry* folder = NewScanEntry(u"dir", uint8_t(kNodeFolder | (data[0] & 1)), 7, g.rootCluster);
        {
            CFatWalker w(vol, mode, nullptr);
            for (size_t at = 0; at < bytes.size(); at += 512)
                if (w.ParseEntries(bytes.subspan(at, std::min<size_t>(512, bytes.size() - at)), folder)) break;
        }
        FreeScanEntries(folder);
    }
    return 0;
}
