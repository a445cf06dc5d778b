#pragma once
// The name of a found item: UTF-16 units kept in node memory behind their count, so that a node
// pays one pointer for its name and the name costs little more than its units. It reads like a
// std::u16string (size, [], ==, conversions to std::u16string and std::u16string_view); changing
// it means assigning a whole new name.
#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kestrin {

class NodeName {
public:
    NodeName() noexcept = default;
    explicit NodeName(std::u16string_view units) { Assign(units); }
    NodeName(const NodeName& other) { Assign(other.view()); }
    NodeName(NodeName&& other) noexcept : m_store(other.m_store) { other.m_store = nullptr; }
    ~NodeName() { Free(); }

    NodeName& operator=(const NodeName& other) {
        if (this != &other) Assign(other.view());
        return *this;
    }
    NodeName& operator=(NodeName&& other) noexcept {
        if (this != &other) {
            Free();
            m_store = other.m_store;
            other.m_store = nullptr;
        }
        return *this;
    }
    NodeName& operator=(std::u16string_view units) {
        Assign(units);
        return *this;
    }
    NodeName& operator=(const std::u16string& units) { return *this = std::u16string_view(units); }
    NodeName& operator=(const char16_t* units) { return *this = std::u16string_view(units); }
    NodeName& assign(std::u16string_view units) { return *this = units; }
    void clear() noexcept { Free(); }

    size_t size() const noexcept { return m_store ? *m_store : 0; }
    size_t length() const noexcept { return size(); }
    bool empty() const noexcept { return size() == 0; }
    const char16_t* data() const noexcept { return m_store ? reinterpret_cast<const char16_t*>(m_store + 1) : nullptr; }
    char16_t* data() noexcept { return m_store ? reinterpret_cast<char16_t*>(m_store + 1) : nullptr; }
    const char16_t* begin() const noexcept { return data(); }
    const char16_t* end() const noexcept { return data() + size(); }
    char16_t* begin() noexcept { return data(); }
    char16_t* end() noexcept { return data() + size(); }
    char16_t operator[](size_t i) const noexcept { return data()[i]; }
    char16_t& operator[](size_t i) noexcept { return data()[i]; }

    std::u16string_view view() const noexcept { return {data(), size()}; }
    std::u16string str() const { return std::u16string(view()); }
    operator std::u16string_view() const noexcept { return view(); }
    operator std::u16string() const { return str(); }

    // The std::u16string searches, for callers that treat the name as one.
    size_t find(char16_t c, size_t from = 0) const noexcept { return view().find(c, from); }
    size_t find(std::u16string_view s, size_t from = 0) const noexcept { return view().find(s, from); }
    size_t rfind(char16_t c, size_t from = std::u16string_view::npos) const noexcept { return view().rfind(c, from); }
    size_t rfind(std::u16string_view s, size_t from = std::u16string_view::npos) const noexcept {
        return view().rfind(s, from);
    }
    std::u16string substr(size_t from, size_t count = std::u16string_view::npos) const {
        return std::u16string(view().substr(from, count));
    }

    friend bool operator==(const NodeName& a, const NodeName& b) noexcept { return a.view() == b.view(); }
    friend bool operator==(const NodeName& a, std::u16string_view b) noexcept { return a.view() == b; }
    friend bool operator==(const NodeName& a, const std::u16string& b) noexcept { return a.view() == b; }
    friend bool operator==(const NodeName& a, const char16_t* b) noexcept { return a.view() == b; }
    friend std::strong_ordering operator<=>(const NodeName& a, const NodeName& b) noexcept {
        return a.view() <=> b.view();
    }
    friend std::strong_ordering operator<=>(const NodeName& a, std::u16string_view b) noexcept { return a.view() <=> b; }
    friend std::u16string operator+(const NodeName& a, std::u16string_view b) { return a.str().append(b); }
    friend std::u16string operator+(std::u16string_view a, const NodeName& b) { return std::u16string(a).append(b.view()); }

private:
    // Replaces the units; keeps the store when the length stays (most renames of placeholders
    // do not). Throws std::bad_alloc when memory runs out, like std::u16string.
    void Assign(std::u16string_view units);
    void Free() noexcept;

    // Count of units, then the units; null for the empty name.
    uint32_t* m_store = nullptr;
};

} // namespace kestrin
