// The mode table of docs/cli.md against what the driver runs: every cell of "What runs follows
// from the mode and the kind of source" is compared with the stages of a real driver run with
// engines that only record themselves.
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "job/Modes.h"
#include "job/QuietScanEvents.h"
#include "scan/CScanDriver.h"
#include "session/ScanPlan.h"
#include "storage/ByteSource.h"
#include "storage/CPhysicalDisk.h"

using namespace kestrin;

namespace {

std::vector<std::string> Cells(const std::string& row) {
    std::vector<std::string> out;
    std::stringstream in(row);
    std::string cell;
    std::getline(in, cell, '|'); // before the first bar
    while (std::getline(in, cell, '|')) {
        size_t a = cell.find_first_not_of(' '), b = cell.find_last_not_of(' ');
        out.push_back(a == std::string::npos ? "" : cell.substr(a, b - a + 1));
    }
    if (!out.empty() && out.back().empty()) out.pop_back();
    return out;
}

// What the driver runs for a source of `kind` in `mode`, in the docs' words.
std::string WhatRuns(SourceKind sourceKind, RecoveryMode mode) {
    CPhysicalDisk disk;
    disk.Attach(std::make_unique<MemorySource>(std::vector<uint8_t>(512 * 64)));
    disk.SetSectorSize(512);
    disk.SetSectorCount(64);
    disk.SetSourceKind(sourceKind);
    Engines e;
    e.fileSystemScan = [](CPhysicalDisk&, int, ScanContext&) { return Outcome::Ok; };
    e.signatureScan = [](CPhysicalDisk&, uint32_t, uint64_t, uint64_t, ScanContext&) { return Outcome::Ok; };
    e.preparation = [](CPhysicalDisk&, ScanContext&) { return Outcome::Ok; };
    e.diskRecordSearch = [](CPhysicalDisk&, uint64_t, uint64_t, ScanContext&) { return Outcome::Ok; };
    e.secondFileSystemScan = [](CPhysicalDisk&, ScanContext&) { return Outcome::Ok; };
    QuietScanEvents events;
    CScanDriver driver(disk, e, events);
    // A chosen partition may get another operation than its source kind calls for.
    const bool partition = sourceKind == SourceKind::DiskPartition1 || sourceKind == SourceKind::DiskPartition2 ||
                           sourceKind == SourceKind::ImagePartition;
    PartitionRecord chosen;
    chosen.fsKind = FsKind::Ntfs;
    const std::optional<OperationKind> forced = partition ? ForcedKindFor(mode, chosen) : std::nullopt;
    bool started = forced ? driver.Start(*forced, mode) : driver.StartForSource(mode).has_value();
    if (forced) driver.Operation().deletedOnly.store(DeletedOnlyFor(mode) ? 1 : 0);
    if (!started) return "(none)";
    driver.Wait();
    std::vector<std::string> words;
    for (Stage s : driver.StagesRun()) {
        switch (s) {
        case Stage::FileSystemScan: words.push_back("file system"); break;
        case Stage::SignatureScan: words.push_back("content"); break;
        case Stage::PhotoPruning: words.push_back("filter"); break;
        case Stage::DiskRecordSearch: words.push_back("record search"); break;
        case Stage::SecondFileSystemScan: words.push_back("smart scan"); break;
        case Stage::Preparation: break; // part of the record search
        default: words.push_back("?"); break;
        }
    }
    std::string out;
    for (const auto& w : words) out += (out.empty() ? "" : " + ") + w;
    return out;
}

} // namespace

TEST(ModeTable, DocsMatchTheDriver) {
    std::ifstream in(std::string(KESTRIN_SOURCE_DIR) + "/docs/cli.md");
    ASSERT_TRUE(in) << "docs/cli.md";
    std::string line;
    std::vector<RecoveryMode> modes;
    int rows = 0;
    while (std::getline(in, line)) {
        if (line.rfind("| source | kind |", 0) == 0) {
            // The header names the modes by their command-line names.
            auto head = Cells(line);
            for (size_t i = 2; i < head.size(); ++i) {
                std::optional<RecoveryMode> mode;
                for (const ModeInfo& m : kModeTable)
                    if (head[i] == m.cliName) mode = m.mode;
                ASSERT_TRUE(mode) << "unknown mode column " << head[i];
                modes.push_back(*mode);
            }
            continue;
        }
        if (modes.empty() || line.rfind("| a ", 0) != 0) {
            if (!modes.empty() && rows > 0 && line.empty()) break;
            continue;
        }
        auto cells = Cells(line);
        ASSERT_EQ(cells.size(), modes.size() + 2) << line;
        std::stringstream kinds(cells[1]);
        std::string kind;
        while (std::getline(kinds, kind, ',')) {
            const auto k = SourceKind(std::stoi(kind));
            for (size_t i = 0; i < modes.size(); ++i)
                EXPECT_EQ(WhatRuns(k, modes[i]), cells[i + 2]) << cells[0] << " (kind " << int(k) << "), mode "
                                                               << uint32_t(modes[i]);
        }
        ++rows;
    }
    EXPECT_EQ(modes.size(), std::size(kModeTable));
    EXPECT_EQ(rows, 4);
}
