#pragma once
// MD5, SHA-1 and SHA-256 of content read once: each digest takes the bytes as they come.
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace kestrin {

class Md5 {
public:
    Md5();
    void Update(const uint8_t* data, size_t len);
    std::array<uint8_t, 16> Finish();

private:
    void Block(const uint8_t* p);
    uint32_t m_h[4];
    uint8_t m_buf[64];
    uint64_t m_total = 0;
};

class Sha1 {
public:
    Sha1();
    void Update(const uint8_t* data, size_t len);
    std::array<uint8_t, 20> Finish();

private:
    void Block(const uint8_t* p);
    uint32_t m_h[5];
    uint8_t m_buf[64];
    uint64_t m_total = 0;
};

class Sha256 {
public:
    Sha256();
    void Update(const uint8_t* data, size_t len);
    std::array<uint8_t, 32> Finish();

private:
    void Block(const uint8_t* p);
    uint32_t m_h[8];
    uint8_t m_buf[64];
    uint64_t m_total = 0;
};

// Lower-case hexadecimal.
template <size_t N>
std::string ToHex(const std::array<uint8_t, N>& digest) {
    static const char kDigits[] = "0123456789abcdef";
    std::string s;
    s.reserve(N * 2);
    for (uint8_t b : digest) {
        s += kDigits[b >> 4];
        s += kDigits[b & 15];
    }
    return s;
}

} // namespace kestrin
