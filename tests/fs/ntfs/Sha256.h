#pragma once
// SHA-256 as hex, for comparing recovered content with the fixtures' manifests.
#include <cstddef>
#include <cstdint>
#include <string>

#include "util/Digest.h"

namespace kestrin::test {

class HexSha256 {
public:
    void Update(const uint8_t* p, size_t n) { m_digest.Update(p, n); }
    std::string Hex() { return ToHex(m_digest.Finish()); }

private:
    kestrin::Sha256 m_digest;
};

} // namespace kestrin::test
