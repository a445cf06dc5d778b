#pragma once
// Lists of found items that other tools read: DFXML, the body file a timeline maker takes, and
// CSV. Both front ends write them through here.
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin {

class CNode;
class CPhysicalDisk;

enum class ReportFormat : uint8_t { Dfxml, Bodyfile, Csv };
// "dfxml", "bodyfile" or "csv".
std::optional<ReportFormat> ParseReportFormat(std::string_view name);

struct ReportDigests {
    bool md5 = false, sha1 = false, sha256 = false;
    bool Any() const { return md5 || sha1 || sha256; }
};
// A comma-separated list of md5, sha1 and sha256; false for an empty list or an unknown name.
bool ParseReportDigests(std::string_view list, ReportDigests& out);

// One scanned tree and the media its items are read from.
struct ReportVolume {
    int partition = 0; // 1-based number of the chosen partition; 0 when none was chosen
    CPhysicalDisk* media = nullptr;
    const CNode* top = nullptr;
};

struct ReportOptions {
    ReportFormat format = ReportFormat::Csv;
    // Digests of every file's content, read once; content that cannot be read in full gets none.
    ReportDigests digests;
    std::string sourcePath; // UTF-8, as the user named it
    std::string version;    // the program's, for the DFXML creator
    // Tested between items; true ends the report early (what was written stays valid).
    std::function<bool()> stop;
};

struct ReportTotals {
    uint64_t items = 0;
    uint64_t hashed = 0;         // files whose digests were written
    uint64_t unreadableFiles = 0; // files whose content could not be read in full (no digests)
    bool stopped = false;
};

// Writes every item of the volumes' trees (folders and files, deleted ones included) in the
// chosen format. False when writing to `out` failed.
bool WriteReport(std::ostream& out, const ReportOptions& options, const std::vector<ReportVolume>& volumes,
                 ReportTotals& totals);

} // namespace kestrin
