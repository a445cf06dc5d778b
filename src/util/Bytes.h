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

// A named field of an on-disk layout: its type, byte order and offset from the start of
// the structure. Layout headers name every field this way, so no parser spells an offset.
//   using BytesPerSector = LeField<uint16_t, 0x0B>;
//   std::optional<uint16_t> bps = BytesPerSector::Read(sector);      // checked
//   uint16_t bps = BytesPerSector::At(sector.data());                 // after one Fits check
enum class Endian { Little, Big };

template <class T, size_t Offset, Endian E>
struct Field {
    static_assert(sizeof(T) == 1 || sizeof(T) == 2 || sizeof(T) == 4 || sizeof(T) == 8);
    using Type = T;
    static constexpr size_t kOffset = Offset;
    static constexpr size_t kSize = sizeof(T);
    static constexpr size_t kEnd = Offset + sizeof(T);
    // The field of the structure that starts at `base` in `b`; nullopt when it lies past the end.
    static std::optional<T> Read(Bytes b, size_t base = 0) {
        if (base > b.size() || !Fits(b, base + Offset, sizeof(T))) return std::nullopt;
        return At(b.data() + base);
    }
    // The same when the value may default (a short buffer reads as `fallback`).
    static T Or(Bytes b, T fallback, size_t base = 0) { return Read(b, base).value_or(fallback); }
    // Unchecked: `p` points at the structure, whose size the caller checked against kEnd.
    static T At(const uint8_t* p) {
        p += Offset;
        if constexpr (sizeof(T) == 1) return T(p[0]);
        else if constexpr (E == Endian::Little && sizeof(T) == 2) return T(Le16(p));
        else if constexpr (E == Endian::Little && sizeof(T) == 4) return T(Le32(p));
        else if constexpr (E == Endian::Little) return T(Le64(p));
        else if constexpr (sizeof(T) == 2) return T(Be16(p));
        else if constexpr (sizeof(T) == 4) return T(Be32(p));
        else return T(Be64(p));
    }
    static void Put(uint8_t* p, T v) {
        p += Offset;
        if constexpr (sizeof(T) == 1) p[0] = uint8_t(v);
        else if constexpr (E == Endian::Little && sizeof(T) == 2) PutLe16(p, uint16_t(v));
        else if constexpr (E == Endian::Little && sizeof(T) == 4) PutLe32(p, uint32_t(v));
        else if constexpr (E == Endian::Little) PutLe64(p, uint64_t(v));
        else if constexpr (sizeof(T) == 2) PutBe16(p, uint16_t(v));
        else if constexpr (sizeof(T) == 4) PutBe32(p, uint32_t(v));
        else PutBe64(p, uint64_t(v));
    }
};
template <class T, size_t Offset>
using LeField = Field<T, Offset, Endian::Little>;
// The same for formats that store numbers big-endian (dynamic-disk databases, ISO media boxes).
template <class T, size_t Offset>
using BeField = Field<T, Offset, Endian::Big>;

// A named run of bytes of a layout (a signature, a name field).
template <size_t Offset, size_t Length>
struct ByteField {
    static constexpr size_t kOffset = Offset;
    static constexpr size_t kSize = Length;
    static constexpr size_t kEnd = Offset + Length;
    // The bytes, or an empty span when they lie past the end of `b`.
    static Bytes In(Bytes b, size_t base = 0) {
        if (base > b.size() || !Fits(b, base + Offset, Length)) return {};
        return b.subspan(base + Offset, Length);
    }
    static bool Is(Bytes b, const void* magic, size_t base = 0) {
        return base <= b.size() && MatchAt(b, base + Offset, magic, Length);
    }
};


} // namespace kestrin
