#pragma once
// Checked little- and big-endian readers over untrusted byte spans. Every on-disk field goes
// through one of these: they return nullopt instead of reading past the buffer.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

namespace kestrin {

using Bytes = std::span<const uint8_t>;

inline bool Fits(Bytes b, size_t at, size_t len) { return at <= b.size() && b.size() - at >= len; }

inline std::optional<uint8_t> ReadU8(Bytes b, size_t at) {
    if (at >= b.size()) return std::nullopt;
    return b[at];
}
inline std::optional<uint16_t> ReadLe16(Bytes b, size_t at) {
    if (!Fits(b, at, 2)) return std::nullopt;
    return uint16_t(b[at] | b[at + 1] << 8);
}
inline std::optional<uint32_t> ReadLe32(Bytes b, size_t at) {
    if (!Fits(b, at, 4)) return std::nullopt;
    return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | uint32_t(b[at + 3]) << 24;
}
inline std::optional<uint64_t> ReadLe64(Bytes b, size_t at) {
    if (!Fits(b, at, 8)) return std::nullopt;
    uint64_t v = 0;
    for (int i = 7; i >= 0; --i) v = v << 8 | b[at + i];
    return v;
}
inline std::optional<uint16_t> ReadBe16(Bytes b, size_t at) {
    if (!Fits(b, at, 2)) return std::nullopt;
    return uint16_t(b[at] << 8 | b[at + 1]);
}
inline std::optional<uint32_t> ReadBe32(Bytes b, size_t at) {
    if (!Fits(b, at, 4)) return std::nullopt;
    return uint32_t(b[at]) << 24 | b[at + 1] << 16 | b[at + 2] << 8 | b[at + 3];
}
inline std::optional<uint64_t> ReadBe64(Bytes b, size_t at) {
    if (!Fits(b, at, 8)) return std::nullopt;
    uint64_t v = 0;
    for (int i = 0; i < 8; ++i) v = v << 8 | b[at + i];
    return v;
}

// Unchecked forms for hot loops whose bounds were checked once before the loop.
inline uint16_t Le16(const uint8_t* p) { return uint16_t(p[0] | p[1] << 8); }
inline uint32_t Le32(const uint8_t* p) { return p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24; }
inline uint64_t Le64(const uint8_t* p) { return Le32(p) | uint64_t(Le32(p + 4)) << 32; }
inline uint16_t Be16(const uint8_t* p) { return uint16_t(p[0] << 8 | p[1]); }
inline uint32_t Be32(const uint8_t* p) { return uint32_t(p[0]) << 24 | p[1] << 16 | p[2] << 8 | p[3]; }
inline uint64_t Be64(const uint8_t* p) { return uint64_t(Be32(p)) << 32 | Be32(p + 4); }

inline void PutLe16(uint8_t* p, uint16_t v) { p[0] = uint8_t(v); p[1] = uint8_t(v >> 8); }
inline void PutLe32(uint8_t* p, uint32_t v) { for (int i = 0; i < 4; ++i) p[i] = uint8_t(v >> (8 * i)); }
inline void PutLe64(uint8_t* p, uint64_t v) { for (int i = 0; i < 8; ++i) p[i] = uint8_t(v >> (8 * i)); }
inline void PutBe16(uint8_t* p, uint16_t v) { p[0] = uint8_t(v >> 8); p[1] = uint8_t(v); }
inline void PutBe32(uint8_t* p, uint32_t v) { for (int i = 0; i < 4; ++i) p[i] = uint8_t(v >> (24 - 8 * i)); }
inline void PutBe64(uint8_t* p, uint64_t v) { for (int i = 0; i < 8; ++i) p[i] = uint8_t(v >> (56 - 8 * i)); }

// True when bytes [at, at+len) of b equal `magic`.
inline bool MatchAt(Bytes b, size_t at, const void* magic, size_t len) {
    return Fits(b, at, len) && std::memcmp(b.data() + at, magic, len) == 0;
}

} // namespace kestrin
