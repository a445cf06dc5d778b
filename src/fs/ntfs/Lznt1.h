#pragma once
// LZNT1, the compression of NTFS compressed files: a compression unit is a series of chunks,
// each standing for 4096 bytes of output.
#include <cstddef>
#include <cstdint>

namespace kestrin {

// Decompresses `in` into `out` (which the caller has zeroed). Returns the number of output bytes
// accounted for (chunks that decode short are padded to their 4096 bytes); `error` is set when
// the input is malformed (the output up to that point stays).
size_t Lznt1Decompress(const uint8_t* in, size_t inLen, uint8_t* out, size_t outLen, bool& error);

} // namespace kestrin
