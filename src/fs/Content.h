#pragma once
// Content read-back: every engine writes one found file's bytes to a sink, so the saver,
// `kestrin cat` and the preview share one path.
#include <cstddef>
#include <cstdint>
#include <functional>

namespace kestrin {

class CPhysicalDisk;
class CNode;

// Receives the content in order; returns false to stop (write failed).
using ContentSink = std::function<bool(const uint8_t* data, size_t len)>;

struct ContentResult {
    bool ok = false;             // every byte of `size` was delivered
    uint64_t written = 0;        // bytes handed to the sink
    uint64_t unreadable = 0;     // bytes that could not be read (zeros were written in their place)
    uint64_t beyondVolume = 0;   // bytes whose clusters lie past the volume's end (not written)
};

// Each engine provides one of these (NTFS, FAT, exFAT, carved) for the media's selected volume.
using ContentWriter = ContentResult (*)(CPhysicalDisk& media, const CNode& node, const ContentSink& sink);

} // namespace kestrin
