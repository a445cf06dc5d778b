#pragma once
// The checks every output path passes before any work starts: it is never the source (under any
// name), never on the source device when the source is a device or a partition of it, never an
// existing file without the user's consent, and its folder exists. Both front ends ask these
// questions the same way; they word the answer and ask for consent themselves.
#include <cstdint>
#include <string>
#include <vector>

#include "job/ScanOperation.h"
#include "platform/FileIdentity.h"

namespace kestrin {

class CPhysicalDisk;

enum class OutputProblem : uint8_t {
    kNone = 0,
    kIsSource,       // the same file or device as the source (or one of its parts)
    kOnSourceDevice, // on a file system of the source device, or a partition of the source disk
    kExists,         // a file of that name exists and replacing it was not allowed
    kNoFolder,       // the folder it would go into does not exist
    kIsFolder,       // a folder stands where the file would go
    kNotAFolder,     // a save folder that exists but is not a folder
    kNotRegular,     // a device, pipe or socket stands where a file would go
};

struct OutputCheck {
    OutputProblem problem = OutputProblem::kNone;
    std::string path;
    bool ok() const { return problem == OutputProblem::kNone; }
};

// What the source was opened from: the image file (every part of a split image) or the device.
std::vector<platform::FileIdentity> SourceIdentities(const CPhysicalDisk& media);
// The same for a path as the user gave it (a recovery session file, an image not opened yet).
void AddSourcePath(std::vector<platform::FileIdentity>& ids, const std::string& path);

// A file about to be written (JSON, recovery session, zip, image, bad-sector map). Only a disk
// image may go onto a device (`deviceAllowed`), and then never onto the source's disk.
OutputCheck CheckOutputFile(const std::string& path, const std::vector<platform::FileIdentity>& sources,
                            bool overwrite, bool deviceAllowed = false);
// A folder a save writes into (made when missing): it and what it lies on.
OutputCheck CheckOutputFolder(const std::string& folder, const std::vector<platform::FileIdentity>& sources);

// The sentence that explains a refusal, in the current language, naming the path.
std::vector<UserText> DescribeOutputProblem(const OutputCheck& check);

} // namespace kestrin
