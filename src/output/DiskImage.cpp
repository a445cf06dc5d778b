#include "output/DiskImage.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <vector>

#include <sys/stat.h>

#include "output/OutputGuard.h"
#include "output/Saver.h"
#include "platform/AtomicFile.h"
#include "platform/FileIdentity.h"
#include "platform/Platform.h"
#include "util/Text.h"

namespace kestrin {

namespace {

constexpr const char* kImageOnSource =
    "The image file would be written onto the source it copies. Choose a file on another drive.";
constexpr const char* kImageFailed = "The image file could not be written.";


bool StatOfSource(const CPhysicalDisk& source, struct stat& st) {
    std::string path = source.GetDeviceKind() == kNotByName ? ToUtf8(source.GetPath()) : source.DevicePath();
    return !path.empty() && ::stat(path.c_str(), &st) == 0;
}

// Runs of failing sectors, merged as they are found in order.
struct BadRuns {
    std::vector<std::pair<uint64_t, uint64_t>> runs;
    void Add(uint64_t sector) {
        if (!runs.empty() && runs.back().first + runs.back().second == sector)
            ++runs.back().second;
        else
            runs.emplace_back(sector, 1);
    }
};

} // namespace

bool ImageTargetIsSource(const std::string& outPath, const CPhysicalDisk& source) {
    struct stat src;
    if (!StatOfSource(source, src)) return false;
    struct stat out;
    if (::stat(outPath.c_str(), &out) == 0) {
        if (out.st_dev == src.st_dev && out.st_ino == src.st_ino) return true;
        // The output device is the source disk, a partition of it, or the disk of a source partition.
        if (S_ISBLK(out.st_mode) && S_ISBLK(src.st_mode) && platform::SameDiskOrPartition(out.st_rdev, src.st_rdev))
            return true;
    }
    // A new file on a file system of the source device would overwrite the source's free space.
    if (S_ISBLK(src.st_mode)) {
        std::filesystem::path parent = std::filesystem::path(outPath).parent_path();
        if (parent.empty()) parent = ".";
        return DestinationOnSource(parent.string(), source);
    }
    return false;
}

ImageResult CreateDiskImage(CPhysicalDisk& source, const std::string& outPath, ScanContext& ctx,
                            IUserMessages& messages, bool replace) {
    ImageResult result;
    auto inform = [&](const char* id, const char* fallback, std::string extra) {
        UserMessage m = InformationOf(id, fallback);
        if (!extra.empty()) m.text.push_back(Words(std::move(extra)));
        messages.Show(m);
    };
    if (ImageTargetIsSource(outPath, source)) {
        result.refused = true;
        inform("IDS_IMAGE_ON_SOURCE", kImageOnSource, "");
        return result;
    }
    const std::string mapPath = outPath + ".map";
    auto sources = SourceIdentities(source);
    for (const std::string& path : {outPath, mapPath}) {
        OutputCheck check = CheckOutputFile(path, sources, replace, /*deviceAllowed=*/path == outPath);
        if (!check.ok()) {
            result.refused = true;
            messages.Show({"", DescribeOutputProblem(check)});
            return result;
        }
    }
    uint32_t sectorSize = source.GetSectorSize();
    if (!sectorSize) sectorSize = 512;
    // A regular file is written under a temporary name and moved into place when complete; a
    // device is written where it is.
    const bool toDevice = platform::IdentityOf(outPath).blockDevice;
    platform::AtomicFile staged;
    platform::File file;
    if (!toDevice) {
        if (!staged.Create(outPath, replace)) {
            result.error = platform::SysCodeFromErrno(staged.Error());
            inform("IDS_IMAGE_CREATE_FAILED", kImageFailed, " " + outPath + ": " + platform::ErrnoText(staged.Error()));
            return result;
        }
    }
    if (!file.OpenWrite(toDevice ? outPath : staged.TempPath(), false)) {
        result.error = file.LastError();
        inform("IDS_IMAGE_CREATE_FAILED", kImageFailed, " " + outPath + ": " + platform::SysErrorText(result.error));
        return result;
    }
    // Zero blocks of a regular file are left as holes (a truncated new file reads them as zeros);
    // a device written to keeps whatever it held, so there every block is written.
    const bool sparse = !toDevice;
    // The image is written through a second media object attached to the new file.
    CPhysicalDisk image;
    image.Attach(std::make_unique<FileSource>(std::move(file)));
    image.SetSectorSize(sectorSize);

    const uint64_t first = source.GetFirstSector(), total = source.GetSectorCount();
    // Sectors of the range past the end of the source (a truncated image) were never there: they
    // are bad sectors like those that fail to read, not zeros that pass for data.
    const uint64_t sourceBytes = source.ByteSize();
    auto pastEnd = [&](uint64_t sector) {
        return sourceBytes && (sector >= sourceBytes / sectorSize ||
                               (sector + 1) * uint64_t(sectorSize) > sourceBytes);
    };
    std::vector<uint8_t> buffer(size_t(kImageSectorsPerRead) * sectorSize);
    BadRuns bad;
    ctx.Progress(0, int64_t(total), sectorSize);
    uint64_t done = 0;
    while (done < total) {
        if (ctx.StopRequested()) {
            result.cancelled = true;
            break;
        }
        uint32_t count = uint32_t(std::min<uint64_t>(kImageSectorsPerRead, total - done));
        uint32_t bytes = count * sectorSize;
        std::fill(buffer.begin(), buffer.begin() + bytes, 0);
        bool whole = !pastEnd(first + done + count - 1) && source.ReadSectors(buffer.data(), bytes, first + done, true);
        if (!whole) {
            for (uint32_t i = 0; i < count; ++i) {
                uint8_t* sector = buffer.data() + size_t(i) * sectorSize;
                std::fill(sector, sector + sectorSize, 0);
                const uint64_t at = first + done + i;
                if (pastEnd(at) || !source.ReadSectors(sector, sectorSize, at, true)) {
                    std::fill(sector, sector + sectorSize, 0);
                    bad.Add(done + i);
                    ++result.badSectors;
                }
            }
        }
        bool last = done + count == total;
        bool skip = sparse && !last && std::all_of(buffer.begin(), buffer.begin() + bytes, [](uint8_t b) { return b == 0; });
        if (!skip && !image.WriteSectors(buffer.data(), bytes, done, true)) {
            result.error = image.Handle()->LastError();
            if (!result.error) result.error = platform::kErrDiskFull;
            inform("IDS_IMAGE_CREATE_FAILED", kImageFailed, " " + outPath + ": " + platform::SysErrorText(result.error));
            break;
        }
        done += count;
        ctx.Progress(int64_t(done), int64_t(total), sectorSize);
    }
    result.sectors = done;
    image.ReleaseHandle(); // closes the file
    if (!toDevice) {
        if (result.cancelled || result.error) {
            // Nothing is left under the final name: an incomplete copy must not pass for an image.
            staged.Abort();
        } else if (!staged.Commit()) {
            result.error = platform::SysCodeFromErrno(staged.Error());
            inform("IDS_IMAGE_CREATE_FAILED", kImageFailed, " " + outPath + ": " + platform::ErrnoText(staged.Error()));
        }
    }
    result.ok = done == total && !result.error && !result.cancelled;

    if (!bad.runs.empty() && !result.cancelled && !result.error) {
        std::string text = "# unreadable sectors of " + ToUtf8(source.GetPath()) + ", written as zeros\n"
                           "# start count (sectors of " + std::to_string(sectorSize) +
                           " bytes, counted from the image's first sector)\n";
        for (auto& [start, n] : bad.runs) text += std::to_string(start) + " " + std::to_string(n) + "\n";
        if (platform::WriteFileAtomically(mapPath, text.data(), text.size(), replace)) result.mapPath = mapPath;
    } else if (replace && !result.cancelled && !result.error) {
        // A map left by an earlier copy to this name would describe another image.
        struct stat st;
        if (::lstat(mapPath.c_str(), &st) == 0 && S_ISREG(st.st_mode)) std::remove(mapPath.c_str());
    }
    return result;
}

Outcome OutcomeOf(const ImageResult& r) {
    if (r.cancelled) return Outcome::Stopped;
    if (!r.ok || r.badSectors) return Outcome::ReadFailed;
    return Outcome::Ok;
}

} // namespace kestrin
