#include "cli/CliDrives.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <vector>

#include "cli/CliJson.h"
#include "cli/CliOutputs.h"
#include "output/DiscTarget.h"
#include "platform/Platform.h"
#include "session/Texts.h"
#include "storage/CPhysicalDisk.h"
#include "storage/SourceLayout.h"
#include "util/Text.h"

namespace kestrin::cli {

namespace {

namespace fs = std::filesystem;

std::string ReadSysLine(const fs::path& p) {
    std::ifstream f(p);
    std::string s;
    if (f) std::getline(f, s);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\n' || s.back() == '\t')) s.pop_back();
    size_t i = s.find_first_not_of(' ');
    return i == std::string::npos ? std::string() : s.substr(i);
}

uint64_t ReadSysNumber(const fs::path& p) {
    std::string s = ReadSysLine(p);
    uint64_t v = 0;
    for (char c : s) {
        if (c < '0' || c > '9' || v > (UINT64_MAX - 9) / 10) break;
        v = v * 10 + uint64_t(c - '0');
    }
    return v;
}

bool IsOctal(char c) { return c >= '0' && c <= '7'; }

// The mount table's entries for device nodes: device → (mount point, file system).
std::map<std::string, std::pair<std::string, std::string>> ReadMounts() {
    std::map<std::string, std::pair<std::string, std::string>> m;
    std::ifstream f("/proc/self/mounts");
    std::string dev, dir, type, rest;
    while (f >> dev >> dir >> type && std::getline(f, rest)) {
        if (dev.rfind("/dev/", 0) != 0) continue;
        // The table writes blanks in paths as octal escapes.
        std::string d;
        for (size_t i = 0; i < dir.size(); ++i) {
            if (dir[i] == '\\' && i + 3 < dir.size() && IsOctal(dir[i + 1]) && IsOctal(dir[i + 2]) && IsOctal(dir[i + 3])) {
                int v = (dir[i + 1] - '0') * 64 + (dir[i + 2] - '0') * 8 + (dir[i + 3] - '0');
                d += char(v);
                i += 3;
            } else {
                d += dir[i];
            }
        }
        std::error_code ec;
        std::string real = fs::weakly_canonical(dev, ec).string();
        m.emplace(ec ? dev : real, std::make_pair(d, type));
    }
    return m;
}

struct DriveEntry {
    std::string name;    // sdb, sdb1
    std::string device;  // /dev/sdb1
    std::string source;  // what to pass as SOURCE: the disk's digit or the device path
    bool isDisk = false;
    uint64_t sizeBytes = 0;
    uint32_t sectorSize = 0;
    std::string model;
    std::string fileSystem;
    std::string mountPoint;
    std::string error; // why it cannot be opened, empty when it can
    std::vector<DriveEntry> volumes;
};

// Opens the device read-only; on success the file system at its start, when there is one.
void Probe(DriveEntry& e) {
    platform::File f;
    if (!f.OpenRead(e.device, false)) {
        e.error = platform::SysErrorText(f.LastError());
        // The advice only helps someone who is not root already.
        if (f.LastError() == platform::kErrAccessDenied && ::geteuid() != 0)
            e.error += " (reading devices needs root or membership of the disk group)";
        return;
    }
    if (!e.isDisk || e.fileSystem.empty()) {
        CPhysicalDisk media;
        media.Attach(std::make_unique<FileSource>(std::move(f), false));
        media.SetSectorSize(e.sectorSize ? e.sectorSize : 512);
        media.SetSectorCount(e.sizeBytes / media.GetSectorSize());
        std::vector<uint8_t> sector(media.GetSectorSize());
        if (media.GetSectorCount() && media.ReadSectors(sector.data(), uint32_t(sector.size()), 0, true)) {
            if (auto r = RecogniseVolume(media, sector, media.GetSectorCount()))
                if (e.fileSystem.empty()) e.fileSystem = FsKindName(r->fsKind);
        }
    }
}

std::vector<DriveEntry> ListDrives() {
    std::vector<DriveEntry> out;
    auto mounts = ReadMounts();
    auto disks = CPhysicalDisk::ListDiskNames();
    for (size_t i = 0; i < disks.size(); ++i) {
        const std::string& name = disks[i];
        fs::path sys = fs::path("/sys/block") / name;
        DriveEntry d;
        d.name = name;
        d.device = "/dev/" + name;
        d.source = std::to_string(i);
        d.isDisk = true;
        d.sizeBytes = ReadSysNumber(sys / "size") * 512; // the kernel counts 512-byte units here
        d.sectorSize = uint32_t(ReadSysNumber(sys / "queue" / "logical_block_size"));
        d.model = ReadSysLine(sys / "device" / "model");
        if (d.model.empty()) d.model = ReadSysLine(sys / "loop" / "backing_file");
        if (auto it = mounts.find(d.device); it != mounts.end()) {
            d.mountPoint = it->second.first;
            d.fileSystem = it->second.second;
        }
        Probe(d);
        std::error_code ec;
        std::vector<std::string> parts;
        for (auto& c : fs::directory_iterator(sys, ec))
            if (fs::exists(c.path() / "partition")) parts.push_back(c.path().filename().string());
        std::sort(parts.begin(), parts.end());
        for (const auto& p : parts) {
            DriveEntry v;
            v.name = p;
            v.device = "/dev/" + p;
            v.source = v.device;
            v.sizeBytes = ReadSysNumber(sys / p / "size") * 512;
            v.sectorSize = d.sectorSize;
            if (auto it = mounts.find(v.device); it != mounts.end()) {
                v.mountPoint = it->second.first;
                v.fileSystem = it->second.second;
            }
            Probe(v);
            d.volumes.push_back(std::move(v));
        }
        out.push_back(std::move(d));
    }
    return out;
}

void WriteEntryJson(std::ostream& o, const DriveEntry& e) {
    o << "{\"name\":" << JsonString(e.name) << ",\"device\":" << JsonString(e.device)
      << ",\"source\":" << JsonString(e.source) << ",\"kind\":\"" << (e.isDisk ? "disk" : "volume")
      << "\",\"sizeBytes\":" << e.sizeBytes << ",\"sectorSize\":" << e.sectorSize
      << ",\"model\":" << JsonString(e.model) << ",\"fileSystem\":" << JsonString(e.fileSystem)
      << ",\"mountPoint\":" << JsonString(e.mountPoint) << ",\"readable\":" << (e.error.empty() ? "true" : "false")
      << ",\"error\":" << (e.error.empty() ? "null" : JsonString(e.error));
    if (e.isDisk) {
        o << ",\"volumes\":[";
        for (size_t i = 0; i < e.volumes.size(); ++i) {
            if (i) o << ",";
            WriteEntryJson(o, e.volumes[i]);
        }
        o << "]";
    }
    o << "}";
}

std::string HumanSize(uint64_t bytes) {
    const char* units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB"};
    double v = double(bytes);
    int u = 0;
    while (v >= 1024 && u < 5) {
        v /= 1024;
        ++u;
    }
    char b[32];
    std::snprintf(b, sizeof b, u ? "%.1f %s" : "%.0f %s", v, units[u]);
    return b;
}

// The model string comes from the device itself and a mount point may be any path: both are
// printed escaped, like names read from a disk.
void PrintEntry(const DriveEntry& e, int indent) {
    const std::string fileSystem = e.fileSystem.empty() ? "-" : EscapeForTerminal(e.fileSystem);
    const std::string mountPoint = e.mountPoint.empty() ? "-" : EscapeForTerminal(e.mountPoint);
    std::printf("%*s%-14s %-10s %10s  %5u B/sector  %-8s %-20s %s\n", indent, "", e.source.c_str(),
                (e.isDisk ? T("IDS_CLI_KIND_DISK", "disk") : T("IDS_CLI_KIND_VOLUME", "volume")).c_str(),
                HumanSize(e.sizeBytes).c_str(), e.sectorSize, fileSystem.c_str(), mountPoint.c_str(),
                EscapeForTerminal(e.model).c_str());
    if (!e.error.empty())
        std::printf("%*s  %s\n", indent, "",
                    TextWith("IDS_CLI_CANNOT_OPEN", "cannot open %s: %s", {e.device, e.error}).c_str());
}

} // namespace

void AddDrivesVerb(CLI::App& app, VerbResult& result) {
    auto json = std::make_shared<bool>(false);
    CLI::App* sub = app.add_subcommand("drives", "List the disks and volumes of this machine to pass as SOURCE");
    sub->add_flag("--json", *json, "Write the list as JSON");
    sub->callback([json, &result] {
        auto drives = ListDrives();
        // Recorders are listed apart: they are what --burn takes, not sources.
        auto recorders = ListRecorders();
        if (*json) {
            std::cout << "{\"drives\":[";
            for (size_t i = 0; i < drives.size(); ++i) {
                if (i) std::cout << ",";
                WriteEntryJson(std::cout, drives[i]);
            }
            std::cout << "],\"recorders\":[";
            for (size_t i = 0; i < recorders.size(); ++i) {
                const RecorderInfo& r = recorders[i];
                std::cout << (i ? "," : "") << "{\"address\":" << JsonString(r.address)
                          << ",\"vendor\":" << JsonString(r.vendor) << ",\"product\":" << JsonString(r.product)
                          << ",\"revision\":" << JsonString(r.revision) << "}";
            }
            std::cout << "]}\n";
        } else {
            std::printf("%-14s %-10s %10s  %-16s %-8s %-20s %s\n", T("IDS_CLI_COL_SOURCE", "SOURCE").c_str(),
                        T("IDS_CLI_COL_KIND", "KIND").c_str(), T("IDS_CLI_COL_SIZE", "SIZE").c_str(),
                        T("IDS_CLI_COL_SECTOR", "SECTOR").c_str(), T("IDS_CLI_COL_FS", "FS").c_str(),
                        T("IDS_CLI_COL_MOUNTED", "MOUNTED").c_str(), T("IDS_CLI_COL_MODEL", "MODEL").c_str());
            for (const auto& d : drives) {
                PrintEntry(d, 0);
                for (const auto& v : d.volumes) PrintEntry(v, 2);
            }
            if (drives.empty()) std::printf("(no disks found)\n");
            if (!recorders.empty()) {
                std::printf("\n%s\n", T("IDS_CLI_RECORDERS", "Optical recorders (for recover --burn):").c_str());
                for (const RecorderInfo& r : recorders)
                    std::printf("  %-14s %s\n", r.address.c_str(), EscapeForTerminal(r.Name()).c_str());
            }
        }
        result.exitCode = kExitOk;
    });
}

} // namespace kestrin::cli
