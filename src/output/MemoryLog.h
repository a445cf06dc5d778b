#pragma once
// The save's log for a target that stores it as a file of its own when the save ends (an archive,
// a disc image): gathered in memory, in the UTF-16LE form of the log file.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace kestrin {

class CMemoryLog {
public:
    void Open() {
        m_open = true;
        m_bytes.clear();
    }
    void Write(const std::u16string& text) {
        for (char16_t c : text) {
            m_bytes.push_back(uint8_t(c));
            m_bytes.push_back(uint8_t(c >> 8));
        }
    }
    bool IsOpen() const { return m_open; }
    size_t Size() const { return m_bytes.size(); }
    // A copy in memory from malloc() (never of zero bytes), for a library that takes the buffer
    // and frees it with free(); null when there is no memory for it.
    uint8_t* MallocCopy() const {
        auto* copy = static_cast<uint8_t*>(std::malloc(m_bytes.size() ? m_bytes.size() : 1));
        if (copy && !m_bytes.empty()) std::memcpy(copy, m_bytes.data(), m_bytes.size());
        return copy;
    }

private:
    bool m_open = false;
    std::vector<uint8_t> m_bytes;
};

} // namespace kestrin
