#include "util/Digest.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace kestrin {

namespace {

uint32_t Be32(const uint8_t* p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3]; }
uint32_t Le32(const uint8_t* p) { return uint32_t(p[3]) << 24 | uint32_t(p[2]) << 16 | uint32_t(p[1]) << 8 | p[0]; }

// The block loop the three digests share: `total` counts the bytes taken so far, `buf` holds
// total % 64 of them.
template <class BlockFn>
void Feed(uint8_t* buf, uint64_t& total, const uint8_t* data, size_t len, BlockFn block) {
    const size_t have = size_t(total % 64);
    total += len;
    if (have) {
        const size_t take = std::min(len, 64 - have);
        std::memcpy(buf + have, data, take);
        data += take;
        len -= take;
        if (have + take < 64) return;
        block(buf);
    }
    for (; len >= 64; data += 64, len -= 64) block(data);
    if (len) std::memcpy(buf, data, len);
}

// The final padding: 0x80, zeros, and the length in bits (little-endian for MD5, else big).
template <class BlockFn>
void Pad(uint8_t* buf, uint64_t total, bool littleEndian, BlockFn block) {
    size_t have = size_t(total % 64);
    buf[have++] = 0x80;
    if (have > 56) {
        std::memset(buf + have, 0, 64 - have);
        block(buf);
        have = 0;
    }
    std::memset(buf + have, 0, 56 - have);
    const uint64_t bits = total * 8;
    for (int i = 0; i < 8; ++i) buf[56 + i] = uint8_t(littleEndian ? bits >> (8 * i) : bits >> (56 - 8 * i));
    block(buf);
}

constexpr uint32_t kMd5K[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};
constexpr int kMd5S[64] = {7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 5, 9,  14, 20, 5, 9,
                           14, 20, 5, 9,  14, 20, 5, 9,  14, 20, 4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23,
                           4, 11, 16, 23, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21};

constexpr uint32_t kSha256K[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

template <size_t N>
std::array<uint8_t, N * 4> WordsOut(const uint32_t (&h)[N], bool littleEndian) {
    std::array<uint8_t, N * 4> out{};
    for (size_t i = 0; i < N; ++i)
        for (int k = 0; k < 4; ++k) out[i * 4 + k] = uint8_t(littleEndian ? h[i] >> (8 * k) : h[i] >> (24 - 8 * k));
    return out;
}

} // namespace

Md5::Md5() : m_h{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476} {}

void Md5::Block(const uint8_t* p) {
    uint32_t m[16];
    for (int i = 0; i < 16; ++i) m[i] = Le32(p + 4 * i);
    uint32_t a = m_h[0], b = m_h[1], c = m_h[2], d = m_h[3];
    for (int i = 0; i < 64; ++i) {
        uint32_t f;
        int g;
        if (i < 16) {
            f = (b & c) | (~b & d);
            g = i;
        } else if (i < 32) {
            f = (d & b) | (~d & c);
            g = (5 * i + 1) % 16;
        } else if (i < 48) {
            f = b ^ c ^ d;
            g = (3 * i + 5) % 16;
        } else {
            f = c ^ (b | ~d);
            g = (7 * i) % 16;
        }
        const uint32_t t = d;
        d = c;
        c = b;
        b = b + std::rotl(a + f + kMd5K[i] + m[g], kMd5S[i]);
        a = t;
    }
    m_h[0] += a;
    m_h[1] += b;
    m_h[2] += c;
    m_h[3] += d;
}

void Md5::Update(const uint8_t* data, size_t len) {
    Feed(m_buf, m_total, data, len, [this](const uint8_t* p) { Block(p); });
}

std::array<uint8_t, 16> Md5::Finish() {
    Pad(m_buf, m_total, true, [this](const uint8_t* p) { Block(p); });
    return WordsOut(m_h, true);
}

Sha1::Sha1() : m_h{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0} {}

void Sha1::Block(const uint8_t* p) {
    uint32_t w[80];
    for (int i = 0; i < 16; ++i) w[i] = Be32(p + 4 * i);
    for (int i = 16; i < 80; ++i) w[i] = std::rotl(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);
    uint32_t a = m_h[0], b = m_h[1], c = m_h[2], d = m_h[3], e = m_h[4];
    for (int i = 0; i < 80; ++i) {
        uint32_t f, k;
        if (i < 20) {
            f = (b & c) | (~b & d);
            k = 0x5a827999;
        } else if (i < 40) {
            f = b ^ c ^ d;
            k = 0x6ed9eba1;
        } else if (i < 60) {
            f = (b & c) | (b & d) | (c & d);
            k = 0x8f1bbcdc;
        } else {
            f = b ^ c ^ d;
            k = 0xca62c1d6;
        }
        const uint32_t t = std::rotl(a, 5) + f + e + k + w[i];
        e = d;
        d = c;
        c = std::rotl(b, 30);
        b = a;
        a = t;
    }
    m_h[0] += a;
    m_h[1] += b;
    m_h[2] += c;
    m_h[3] += d;
    m_h[4] += e;
}

void Sha1::Update(const uint8_t* data, size_t len) {
    Feed(m_buf, m_total, data, len, [this](const uint8_t* p) { Block(p); });
}

std::array<uint8_t, 20> Sha1::Finish() {
    Pad(m_buf, m_total, false, [this](const uint8_t* p) { Block(p); });
    return WordsOut(m_h, false);
}

Sha256::Sha256()
    : m_h{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19} {}

void Sha256::Block(const uint8_t* p) {
    uint32_t w[64];
    for (int i = 0; i < 16; ++i) w[i] = Be32(p + 4 * i);
    for (int i = 16; i < 64; ++i) {
        const uint32_t s0 = std::rotr(w[i - 15], 7) ^ std::rotr(w[i - 15], 18) ^ (w[i - 15] >> 3);
        const uint32_t s1 = std::rotr(w[i - 2], 17) ^ std::rotr(w[i - 2], 19) ^ (w[i - 2] >> 10);
        w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    uint32_t a = m_h[0], b = m_h[1], c = m_h[2], d = m_h[3], e = m_h[4], f = m_h[5], g = m_h[6], h = m_h[7];
    for (int i = 0; i < 64; ++i) {
        const uint32_t s1 = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
        const uint32_t t1 = h + s1 + ((e & f) ^ (~e & g)) + kSha256K[i] + w[i];
        const uint32_t s0 = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
        const uint32_t t2 = s0 + ((a & b) ^ (a & c) ^ (b & c));
        h = g;
        g = f;
        f = e;
        e = d + t1;
        d = c;
        c = b;
        b = a;
        a = t1 + t2;
    }
    m_h[0] += a;
    m_h[1] += b;
    m_h[2] += c;
    m_h[3] += d;
    m_h[4] += e;
    m_h[5] += f;
    m_h[6] += g;
    m_h[7] += h;
}

void Sha256::Update(const uint8_t* data, size_t len) {
    Feed(m_buf, m_total, data, len, [this](const uint8_t* p) { Block(p); });
}

std::array<uint8_t, 32> Sha256::Finish() {
    Pad(m_buf, m_total, false, [this](const uint8_t* p) { Block(p); });
    return WordsOut(m_h, false);
}

} // namespace kestrin
