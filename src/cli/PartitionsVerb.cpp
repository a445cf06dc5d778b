// kestrin partitions SOURCE [--json]: the numbered partition list of a disk image, a volume image
// or a device. The numbers are the ones `--partition N` takes in every other verb.
#include <cinttypes>
#include <cstdio>
#include <unistd.h>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "session/EngineTable.h"
#include "cli/CliFrontEnd.h"
#include "cli/CliOutputs.h"
#include "session/Source.h"
#include "session/Texts.h"
#include "scan/CScanDriver.h"
#include "job/ScanOperation.h"
#include "cli/Verbs.h"
#include "storage/SourceLayout.h"
#include "util/Text.h"

namespace kestrin::cli {

namespace {

struct PartitionsOptions {
    std::string source;
    uint32_t sectorSize = 0;
    bool json = false;
    bool search = false;
};

// Records without a sector size of their own (table-only entries, a FAT32 boot sector that gives
// none) report the media's.
uint32_t BytesPerSectorOf(const PartitionRecord& r, const CPhysicalDisk& disk) {
    return r.bytesPerSector ? r.bytesPerSector : disk.GetSectorSize();
}
uint64_t BytesPerClusterOf(const PartitionRecord& r, const CPhysicalDisk& disk) {
    return r.bytesPerCluster ? r.bytesPerCluster : uint64_t(r.sectorsPerCluster) * BytesPerSectorOf(r, disk);
}

void PrintJson(const PartitionsOptions& o, const OpenedSource& src) {
    const CPhysicalDisk& disk = *src.media;
    const std::vector<PartitionRecord>& parts = src.partitions;
    const Layout layout = src.layout;
    nlohmann::ordered_json j;
    j["source"] = {{"path", o.source}, {"sectorSize", disk.GetSectorSize()}, {"sectorCount", disk.GetSectorCount()}};
    j["layout"] = LayoutName(layout);
    j["partitions"] = nlohmann::ordered_json::array();
    for (size_t i = 0; i < parts.size(); ++i) {
        const PartitionRecord& r = parts[i];
        j["partitions"].push_back({{"index", i + 1},
                                   {"startSector", r.startSector},
                                   {"length", r.length},
                                   {"fsKind", r.fsKind},
                                   {"fsName", FsKindName(r.fsKind)},
                                   {"flag", r.partitionFlag},
                                   {"bytesPerSector", BytesPerSectorOf(r, disk)},
                                   {"sectorsPerCluster", r.sectorsPerCluster},
                                   {"bytesPerCluster", BytesPerClusterOf(r, disk)}});
        if (r.tableType != TableType::None) j["partitions"].back()["tableType"] = TableTypeName(r.tableType);
        if (r.found) j["partitions"].back()["found"] = true;
        if (const AssembledVolume* v = DynamicVolumeOf(src, i)) j["partitions"].back()["dynamicVolume"] = v->name;
    }
    std::printf("%s\n", j.dump(2).c_str());
}

void PrintText(const PartitionsOptions& o, const OpenedSource& src) {
    const CPhysicalDisk& disk = *src.media;
    const std::vector<PartitionRecord>& parts = src.partitions;
    const Layout layout = src.layout;
    std::printf("%s\n%s\n",
                TextWith("IDS_CLI_SOURCE_SECTORS", "Source: %s (%s sectors of %s bytes)",
                         {o.source, std::to_string(disk.GetSectorCount()), std::to_string(disk.GetSectorSize())})
                    .c_str(),
                Tf("IDS_CLI_LAYOUT", LayoutName(layout), "Layout: %s").c_str());
    if (parts.empty()) {
        std::printf("%s\n", T("IDS_CLI_NO_PARTITIONS_FOUND", "No partitions found.").c_str());
        return;
    }
    std::printf("\n%3s  %14s  %14s  %-11s  %4s  %12s  %15s\n", "#", T("IDS_CLI_COL_START_SECTOR", "Start sector").c_str(),
                T("IDS_CLI_COL_LENGTH", "Length").c_str(), T("IDS_CLI_COL_FILE_SYSTEM", "File system").c_str(),
                T("IDS_CLI_COL_FLAG", "Flag").c_str(), T("IDS_CLI_COL_BYTES_PER_SECTOR", "Bytes/sector").c_str(),
                T("IDS_CLI_COL_SECTORS_PER_CLUSTER", "Sectors/cluster").c_str());
    const std::string found = "  " + T("IDS_CLI_FOUND_MARK", "found");
    const std::string dynamicVolume = "  " + T("IDS_CLI_DYNAMIC_VOLUME", "dynamic volume") + " ";
    for (size_t i = 0; i < parts.size(); ++i) {
        const PartitionRecord& r = parts[i];
        const AssembledVolume* dynamic = DynamicVolumeOf(src, i);
        // The table's type is shown where the file system does not already say it.
        std::string type;
        if (r.tableType != TableType::None && (r.tableType != TableType::Data || r.fsKind == FsKind::None))
            type = std::string("  ") + TableTypeName(r.tableType);
        std::printf("%3zu  %14" PRIu64 "  %14" PRIu64 "  %-11s  %4u  %12u  %15u%s%s%s%s\n", i + 1, r.startSector,
                    r.length, FsKindName(r.fsKind), unsigned(r.partitionFlag), BytesPerSectorOf(r, disk),
                    unsigned(r.sectorsPerCluster), r.found ? found.c_str() : "", dynamic ? dynamicVolume.c_str() : "",
                    dynamic ? EscapeForTerminal(dynamic->name).c_str() : "", type.c_str());
    }
    if (layout == Layout::Gpt)
        std::printf("\n%s\n", T("IDS_CLI_GPT_LENGTH_NOTE", "On GPT disks the length column holds the partition's last sector.").c_str());
    std::printf("%s\n", T("IDS_CLI_FLAG_LEGEND", "Flag 2: boot sector checked; flag 1: position from the table only.").c_str());
}

int RunPartitions(const PartitionsOptions& o) {
    OpenedSource src;
    std::string error;
    if (!OpenSource(o.source, src, error, o.sectorSize)) {
        std::fprintf(stderr, "kestrin: %s\n", error.c_str());
        return kExitUsage;
    }
    if (o.search) {
        // The lost-partition search over the whole source; its finds follow the table's entries
        // (their length is always a sector count).
        SelectWholeSource(src);
        CPhysicalDisk& m = *src.media;
        CliFrontEnd fe(o.json || !isatty(fileno(stderr)));
        CScanDriver driver(m, MakeEngines(), fe);
        if (driver.Start(OperationKind::PartitionSearch, RecoveryMode::Partition)) fe.RunToEnd(driver);
        for (const auto& n : fe.Notices()) std::fprintf(stderr, "%s\n", n.c_str());
        src.partitions.clear();
        if (m.Partitions().size() > 1) src.partitions.assign(m.Partitions().begin() + 1, m.Partitions().end());
        src.partitions.insert(src.partitions.end(), m.SecondPartitions().begin(), m.SecondPartitions().end());
        src.partitions.insert(src.partitions.end(), m.OtherPartitions().begin(), m.OtherPartitions().end());
        SelectWholeSource(src);
    }
    const CPhysicalDisk& disk = *src.media;
    if (o.json) PrintJson(o, src);
    else PrintText(o, src);
    if (disk.ReadFailures() > 0) {
        std::fprintf(stderr, "kestrin: %s\n",
                     TextWith("IDS_CLI_READS_FAILED", "%s read(s) failed on '%s'; the list may be incomplete",
                              {std::to_string(disk.ReadFailures()), o.source})
                         .c_str());
        return kExitReadErrors;
    }
    return kExitOk;
}

} // namespace

void AddPartitionsVerb(CLI::App& app, VerbResult& result) {
    auto opts = std::make_shared<PartitionsOptions>();
    CLI::App* sub = app.add_subcommand(
        "partitions", "List the partitions of a disk image, volume image or device, numbered for --partition N");
    sub->add_option("SOURCE", opts->source,
                    "Image file (raw, name.001 for a split image, E01, VHD, VHDX, VMDK or QCOW2), disk number "
                    "(0, 1, ...), device name (sdb1) or device path (/dev/sdb)")
        ->required();
    sub->add_flag("--json", opts->json, "Print the list as JSON");
    sub->add_flag("--search", opts->search,
                  "Also search the whole source for lost partitions (listed after the table's, marked found)");
    AddSectorSizeOption(sub, opts->sectorSize);
    sub->callback([opts, &result] { result.exitCode = RunPartitions(*opts); });
}

} // namespace kestrin::cli
