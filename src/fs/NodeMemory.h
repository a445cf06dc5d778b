#pragma once
// Memory for the found-item tree. A scan makes millions of nodes and names and frees them
// together, so they are cut from large blocks instead of the general heap: no per-allocation
// header, no rounding to the heap's size classes. Each thread cuts from a block of its own without
// locking; any thread may free. A block goes back to the heap when everything cut from it has
// been freed and no thread cuts from it any more. Space freed inside a block is not reused.
#include <cstddef>
#include <cstdint>

namespace kestrin::node_memory {

// Block size and alignment; a larger request gets a block of its own.
constexpr size_t kBlockBytes = size_t(1) << 20;

// `bytes` aligned to `align` (a power of two, at most 16); null when the heap is exhausted.
void* Allocate(size_t bytes, size_t align) noexcept;
// Frees what Allocate returned (null is ignored), from any thread; `bytes` is the size asked for.
void Release(void* p, size_t bytes) noexcept;

// Blocks currently held from the heap (all threads), for tests and figures.
size_t LiveBlocks() noexcept;

} // namespace kestrin::node_memory
