#include "fs/NodeName.h"

#include <cstring>
#include <new>
#include <stdexcept>

#include "fs/NodeMemory.h"

namespace kestrin {

namespace {
size_t StoreBytes(size_t units) { return sizeof(uint32_t) + units * sizeof(char16_t); }
} // namespace

void NodeName::Assign(std::u16string_view units) {
    if (units.size() == size()) {
        // Same length: overwrite in place (memmove: `units` may be this name).
        if (!units.empty()) std::memmove(data(), units.data(), units.size() * sizeof(char16_t));
        return;
    }
    if (units.empty()) {
        Free();
        return;
    }
    if (units.size() > UINT32_MAX / sizeof(char16_t) - 2) throw std::length_error("name too long");
    auto* store = static_cast<uint32_t*>(node_memory::Allocate(StoreBytes(units.size()), alignof(uint32_t)));
    if (!store) throw std::bad_alloc();
    *store = uint32_t(units.size());
    std::memcpy(store + 1, units.data(), units.size() * sizeof(char16_t));
    Free();
    m_store = store;
}

void NodeName::Free() noexcept {
    if (!m_store) return;
    node_memory::Release(m_store, StoreBytes(*m_store));
    m_store = nullptr;
}

} // namespace kestrin
