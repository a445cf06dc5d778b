#include "fs/ntfs/Lznt1.h"

#include <algorithm>
#include <cstring>

namespace kestrin {

namespace {
constexpr size_t kChunkBytes = 4096;
// A chunk header: the chunk's stored bytes minus one in the low 12 bits, and whether the chunk
// is compressed (else stored as is) in the top bit.
constexpr uint16_t kChunkSizeMask = 0x0FFF;
constexpr uint16_t kChunkCompressed = 0x8000;
} // namespace

size_t Lznt1Decompress(const uint8_t* in, size_t inLen, uint8_t* out, size_t outLen, bool& error) {
    error = false;
    size_t ip = 0, op = 0;
    while (ip + 2 <= inLen && op < outLen) {
        uint16_t header = uint16_t(in[ip] | in[ip + 1] << 8);
        ip += 2;
        if (header == 0) break; // end of the compressed data
        size_t chunkLen = (header & kChunkSizeMask) + 1u;
        if (chunkLen > inLen - ip) {
            error = true;
            break;
        }
        size_t chunkEnd = ip + chunkLen;
        size_t outStart = op, outEnd = std::min(op + kChunkBytes, outLen);
        if (!(header & kChunkCompressed)) {
            // Stored chunk: the bytes as they are.
            size_t n = std::min(chunkLen, outEnd - op);
            std::memcpy(out + op, in + ip, n);
            op += n;
        } else {
            while (ip < chunkEnd && op < outEnd) {
                uint8_t flags = in[ip++];
                for (int bit = 0; bit < 8 && ip < chunkEnd && op < outEnd; ++bit, flags >>= 1) {
                    if (!(flags & 1)) {
                        out[op++] = in[ip++];
                        continue;
                    }
                    if (chunkEnd - ip < 2) {
                        error = true;
                        return op;
                    }
                    uint16_t token = uint16_t(in[ip] | in[ip + 1] << 8);
                    ip += 2;
                    // The split between offset and length bits moves with the position inside
                    // the chunk: the offset takes as many bits as positions need, at least 4.
                    size_t pos = op - outStart;
                    unsigned lengthBits = 12;
                    uint16_t lengthMask = 0x0FFF;
                    for (size_t i = pos - 1; i >= 0x10 && lengthBits > 4; i >>= 1) {
                        --lengthBits;
                        lengthMask >>= 1;
                    }
                    size_t back = (token >> lengthBits) + 1u;
                    size_t len = (token & lengthMask) + 3u;
                    if (pos == 0 || back > pos) {
                        error = true;
                        return op;
                    }
                    for (size_t i = 0; i < len && op < outEnd; ++i, ++op) out[op] = out[op - back];
                }
            }
        }
        ip = chunkEnd;
        // Every chunk stands for a full 4096 bytes; what it did not produce stays zero.
        op = outEnd;
    }
    return op;
}

} // namespace kestrin
