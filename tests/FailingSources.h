#pragma once
// A source for tests of read errors: reads touching [from, to) fail with `code`. Once a read has
// failed with device-gone every later read fails too, as on a device that was unplugged; the
// reads made after that are counted.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "platform/Platform.h"
#include "storage/ByteSource.h"

namespace kestrin::test {

class FlakySource final : public ByteSource {
public:
    FlakySource(std::vector<uint8_t> data, uint64_t from, uint64_t to, uint32_t code)
        : m_data(std::move(data)), m_from(from), m_to(to), m_code(code) {}
    long long ReadAt(void* buf, size_t len, uint64_t offset) override {
        if (m_gone) {
            ++readsAfterGone;
            return -1;
        }
        if (offset < m_to && m_from < offset + len) {
            m_gone = m_code == platform::kErrDeviceGone;
            return -1;
        }
        if (offset >= m_data.size()) return 0;
        size_t n = std::min<size_t>(len, size_t(m_data.size() - offset));
        std::copy_n(m_data.begin() + ptrdiff_t(offset), n, static_cast<uint8_t*>(buf));
        return (long long)n;
    }
    uint64_t Size() const override { return m_data.size(); }
    uint32_t LastError() const override { return m_code; }
    int readsAfterGone = 0;

private:
    std::vector<uint8_t> m_data;
    uint64_t m_from, m_to;
    uint32_t m_code;
    bool m_gone = false;
};

} // namespace kestrin::test
