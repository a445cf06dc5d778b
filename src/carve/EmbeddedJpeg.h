#pragma once
// The JPEG images a file carries inside it (the preview of a camera raw file, a document's
// thumbnail), found by their start-of-image marker and a walk of their marker segments up to the
// frame header. Only frames an ordinary JPEG decoder shows are listed: baseline, extended and
// progressive; the lossless frames raw files store their sensor data in are not pictures.
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace kestrin {

struct EmbeddedJpeg {
    size_t offset = 0; // of the FF D8 start-of-image marker
    uint16_t width = 0;
    uint16_t height = 0;
};

// Looks at no more than kMaxEmbeddedCandidates start markers and kMaxEmbeddedSegments segments
// each; the result is ordered by pixel count, largest first, earlier first among equals.
constexpr size_t kMaxEmbeddedCandidates = 256;
constexpr int kMaxEmbeddedSegments = 128;
std::vector<EmbeddedJpeg> FindEmbeddedJpegs(std::span<const uint8_t> file);

} // namespace kestrin
