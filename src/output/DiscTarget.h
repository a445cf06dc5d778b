#pragma once
// Saving to an optical disc, or to an ISO 9660 image file where no recorder is at hand. The
// ticked items become one ISO 9660 tree with Joliet and Rock Ridge names, built by the same walk
// and the same naming rules as a save to a folder; the content is read from the source only while
// the image is written, one file after the other, never staged anywhere.
#include <cstdint>
#include <string>
#include <vector>

#include "output/Saver.h"
#include "job/DiscControl.h"

namespace kestrin {

// Longest name Joliet allows, in UTF-16 units.
inline constexpr size_t kJolietNameUnits = 64;

struct RecorderInfo {
    std::string address; // what --burn takes: "/dev/sr0"
    std::string vendor, product, revision;
    // "vendor product (address)", as the progress line names the recorder.
    std::string Name() const;
};

// The optical recorders of this machine (empty when there are none or none can be opened).
std::vector<RecorderInfo> ListRecorders();
// The name of the recorder at `address` for the progress line; the address itself when it is
// not one ListRecorders knows (a "stdio:" pseudo-drive).
std::string RecorderName(const std::string& address);

struct DiscRequest {
    // An image file to write (replaced only with SaveRequest::replaceExisting), or
    std::string isoPath;
    // a recorder's address: a device ("/dev/sr0") or a "stdio:PATH" pseudo-drive.
    std::string recorder;
    // Erase a rewritable medium that holds data before writing; without it such a medium is
    // refused (an appendable one gets a new session instead).
    bool erase = false;
    std::string volumeId = "KESTRIN";
    // Flags and stop of the recorder, shared with the driver's cancel (may be null).
    DiscControl* control = nullptr;
    // When set, the medium is taken to hold no more than this many bytes (a smaller disc than the
    // recorder reports; tests use it with a pseudo-drive).
    uint64_t capacityLimit = 0;
};

// One volume's ticked items, into a folder of that name on the disc ("" for the disc's top).
struct DiscVolume {
    CPhysicalDisk* media = nullptr;
    const CNode* start = nullptr;
    std::string folder;
};

// Builds the image of every volume's ticked items and writes it. The walk's rules (collision mode,
// deleted-only, content writer, messages) come from `base`; its destination is ignored. A
// medium or a folder too small for the image is refused before anything is written, with both
// sizes; a cancel leaves no image file and reports nothing as saved.
SaveResult SaveToDisc(const std::vector<DiscVolume>& volumes, ScanContext& ctx, const SaveRequest& base,
                      const DiscRequest& disc);

// `name` as it goes on the disc: unchanged up to kJolietNameUnits units, else cut to fit with its
// extension kept; `suffix` adds "~" and four hex digits of the full name before the extension
// (the form used when the cut name is taken).
std::u16string DiscName(const std::u16string& name, bool suffix);

} // namespace kestrin
