// The search for JPEG images inside a file (camera-raw previews) over arbitrary bytes.
#include <cstdint>

#include "carve/EmbeddedJpeg.h"

using namespace kestrin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto found = FindEmbeddedJpegs({data, size});
    for (const auto& j : found)
        if (j.offset >= size || !j.width || !j.height) __builtin_trap();
    return 0;
}
