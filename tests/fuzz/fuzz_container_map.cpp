// The allocation-table readers of sparse virtual disks over an image file made of the input. The
// first byte picks the format (and, for VMDK, extents around the sparse one); the disk is the size
// the bytes declare, so the tables are reached. Runs must lie in the disk and move forward.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "storage/ContainerLayout.h"
#include "storage/ContainerMap.h"

using namespace kestrin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint8_t pick = data[0];
    std::vector<uint8_t> bytes(data + 1, data + size);
    auto file = std::make_unique<MemorySource>(bytes);
    uint64_t disk = 0;
    std::unique_ptr<ContainerMap> map;
    switch (pick % 3) {
    case 0:
        disk = layout::qcow::DiskSize::Or(bytes, 0);
        map = ContainerMap::Qcow(std::move(file), disk);
        break;
    case 1:
        disk = layout::vhd::CurrentSize::Or(bytes, 0);
        map = ContainerMap::DynamicVhd(std::move(file), disk);
        break;
    default: {
        // The header's capacity, or the footer's for a stream-optimised extent.
        uint64_t sectors = layout::vmdk::Capacity::Or(bytes, 0);
        if (layout::vmdk::DirectoryOffset::Or(bytes, 0) == layout::vmdk::kDirectoryAtEnd &&
            bytes.size() >= layout::vmdk::kFooterFromEnd)
            sectors = layout::vmdk::Capacity::Or(bytes, 0, bytes.size() - layout::vmdk::kFooterFromEnd);
        const uint64_t sparse = sectors * layout::vmdk::kSectorBytes;
        std::vector<ContainerMap::VmdkExtent> extents;
        auto add = [&](ContainerMap::VmdkExtent::Kind kind, uint64_t n) {
            ContainerMap::VmdkExtent e;
            e.kind = kind;
            e.bytes = n;
            extents.push_back(std::move(e));
            disk += n;
        };
        if (pick & 0x10) add(ContainerMap::VmdkExtent::Kind::Zero, 1 << 20);
        if (pick & 0x20) add(ContainerMap::VmdkExtent::Kind::Data, 4096);
        add(ContainerMap::VmdkExtent::Kind::Sparse, sparse);
        extents.back().file = std::move(file);
        if (pick & 0x40) add(ContainerMap::VmdkExtent::Kind::Zero, 512);
        map = ContainerMap::Vmdk(std::move(extents), disk);
        break;
    }
    }
    if (!map) return 0;
    uint64_t at = 0;
    for (int i = 0; i < 4096 && at < disk; ++i) {
        uint64_t s, e;
        map->DataRun(at, s, e);
        if (s == UINT64_MAX) break;
        if (s < at || s >= disk || e <= s || (e != UINT64_MAX && e > disk)) std::abort();
        at = e;
    }
    // Offsets far apart, backwards: the cached table must not leak into another one.
    for (uint64_t off = disk; off > 0; off /= 3) {
        uint64_t s, e;
        map->DataRun(off - 1, s, e);
        if (s != UINT64_MAX && (s < off - 1 || e <= s)) std::abort();
    }
    return 0;
}
