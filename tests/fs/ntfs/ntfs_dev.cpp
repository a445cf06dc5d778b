// Developer program (not installed): runs the NTFS engine on an image without the CLI.
//   ntfs_dev IMAGE [--start SECTOR] [--sector-size N] [--search] ls
//   ntfs_dev IMAGE [--start SECTOR] [--sector-size N] [--search] cat PATH > out
//   ntfs_dev IMAGE [--start SECTOR] [--sector-size N] [--search] stats
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>

#include "NtfsTestSupport.h"
#include "storage/CPhysicalDisk.h"

using namespace kestrin;

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: ntfs_dev IMAGE [--start S] [--sector-size N] [--search] ls|stats|cat PATH\n");
        return 2;
    }
    std::string image = argv[1];
    uint64_t start = 0;
    uint32_t sectorSize = 512;
    bool search = false;
    int i = 2;
    for (; i < argc && std::strncmp(argv[i], "--", 2) == 0; ++i) {
        if (!std::strcmp(argv[i], "--start") && i + 1 < argc) start = std::stoull(argv[++i]);
        else if (!std::strcmp(argv[i], "--sector-size") && i + 1 < argc) sectorSize = uint32_t(std::stoul(argv[++i]));
        else if (!std::strcmp(argv[i], "--search")) search = true;
    }
    if (i >= argc) return 2;
    std::string verb = argv[i];
    CPhysicalDisk media;
    if (!media.AttachImageFile(image, sectorSize)) {
        std::fprintf(stderr, "cannot open %s\n", image.c_str());
        return 1;
    }
    uint64_t count = media.GetSectorCount();
    media.SetFirstSector(start);
    media.SetSectorCount(count > start ? count - start : 0);
    test::ScanHarness h;
    auto t0 = std::chrono::steady_clock::now();
    Outcome outcome = search ? NtfsSearchRecords(media, 0, media.GetSectorCount(), h.ctx) : NtfsScanVolume(media, 1, h.ctx);
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    CNode* vol = h.Volume();
    if (!vol) {
        std::fprintf(stderr, "no volume found\n");
        return 1;
    }
    if (verb == "stats") {
        size_t items = 0;
        ForEachNode(vol, [&](CNode*) { ++items; });
        rusage ru{};
        getrusage(RUSAGE_SELF, &ru);
        std::printf("items %zu records %lld seconds %.3f records/s %.0f peak-rss-kib %ld outcome %s\n", items,
                    (long long)h.op.done.load(), seconds, h.op.done.load() / (seconds > 0 ? seconds : 1e-9), ru.ru_maxrss,
                    OutcomeName(outcome));
        return 0;
    }
    auto items = test::ListTree(vol);
    if (verb == "ls") {
        for (auto& it : items)
            std::printf("%s\t%llu\t%u\t%u\n", it.path.c_str(), (unsigned long long)it.size, it.flags, it.recordId);
    } else if (verb == "cat" && i + 1 < argc) {
        CNode* n = test::FindPath(vol, argv[i + 1]);
        if (!n) {
            std::fprintf(stderr, "no such item\n");
            return 1;
        }
        ContentResult r = NtfsWriteContent(media, *n, [](const uint8_t* p, size_t len) {
            return std::fwrite(p, 1, len, stdout) == len;
        });
        std::fprintf(stderr, "ok %d written %llu unreadable %llu beyond %llu\n", r.ok, (unsigned long long)r.written,
                     (unsigned long long)r.unreadable, (unsigned long long)r.beyondVolume);
        return r.ok ? 0 : 1;
    }
    return 0;
}
