#include "fs/NodeMemory.h"

#include <atomic>
#include <cstdlib>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define KESTRIN_POISON_NODES 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KESTRIN_POISON_NODES 1
#endif
#endif
#ifdef KESTRIN_POISON_NODES
#include <sanitizer/asan_interface.h>
#define POISON(p, n) ASAN_POISON_MEMORY_REGION(p, n)
#define UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION(p, n)
#else
#define POISON(p, n) ((void)(p), (void)(n))
#define UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace kestrin::node_memory {

namespace {

// At the start of every block. `live` counts the allocations not freed yet, plus kHold while a
// thread still cuts from the block (so that it cannot go away under the cursor).
struct Block {
    std::atomic<int64_t> live;
};

constexpr size_t kHeaderBytes = 16;
static_assert(sizeof(Block) <= kHeaderBytes);
static_assert((kBlockBytes & (kBlockBytes - 1)) == 0);
// Larger requests get a block of their own, so that a long name never wastes most of a block.
constexpr size_t kLargeBytes = kBlockBytes / 8;
constexpr int64_t kHold = int64_t(1) << 40;

std::atomic<size_t> g_liveBlocks{0};

Block* NewBlock(size_t bytes, int64_t live) {
    void* m = std::aligned_alloc(kBlockBytes, bytes);
    if (!m) return nullptr;
    auto* b = new (m) Block{};
    b->live.store(live, std::memory_order_relaxed);
    g_liveBlocks.fetch_add(1, std::memory_order_relaxed);
    POISON(static_cast<char*>(m) + kHeaderBytes, bytes - kHeaderBytes);
    return b;
}

void Drop(Block* b, int64_t count) {
    if (b->live.fetch_sub(count, std::memory_order_acq_rel) != count) return;
    g_liveBlocks.fetch_sub(1, std::memory_order_relaxed);
    b->~Block();
    std::free(b);
}

// The block this thread cuts from. Allocations are only counted here; the block's own count
// learns them when the thread moves on (kHold stands for them until then).
struct Cursor {
    Block* block = nullptr;
    char* next = nullptr;
    char* end = nullptr;
    int64_t cut = 0;

    ~Cursor() { Retire(); }
    void Retire() {
        if (block) Drop(block, kHold - cut);
        block = nullptr;
        next = end = nullptr;
        cut = 0;
    }
};

thread_local Cursor t_cursor;

size_t RoundUp(size_t v, size_t to) { return (v + to - 1) & ~(to - 1); }

} // namespace

void* Allocate(size_t bytes, size_t align) noexcept {
    // Sizes and starts in steps of 8: the sanitizer's poisoning works in 8-byte granules.
    bytes = RoundUp(bytes ? bytes : 1, 8);
    align = align < 8 ? 8 : align;
    if (bytes > kLargeBytes) {
        if (bytes > SIZE_MAX - 2 * kBlockBytes) return nullptr;
        Block* b = NewBlock(RoundUp(kHeaderBytes + bytes, kBlockBytes), 1);
        if (!b) return nullptr;
        char* p = reinterpret_cast<char*>(b) + kHeaderBytes;
        UNPOISON(p, bytes);
        return p;
    }
    Cursor& c = t_cursor;
    char* p = c.block ? reinterpret_cast<char*>(RoundUp(reinterpret_cast<uintptr_t>(c.next), align)) : nullptr;
    if (!c.block || p > c.end || size_t(c.end - p) < bytes) {
        Block* b = NewBlock(kBlockBytes, kHold);
        if (!b) return nullptr;
        c.Retire();
        c.block = b;
        c.next = reinterpret_cast<char*>(b) + kHeaderBytes;
        c.end = reinterpret_cast<char*>(b) + kBlockBytes;
        p = reinterpret_cast<char*>(RoundUp(reinterpret_cast<uintptr_t>(c.next), align));
    }
    c.next = p + bytes;
    ++c.cut;
    UNPOISON(p, bytes);
    return p;
}

void Release(void* p, size_t bytes) noexcept {
    if (!p) return;
    POISON(p, RoundUp(bytes ? bytes : 1, 8));
    // An allocation starts within the first kBlockBytes of its block, whatever the block's size.
    auto* b = reinterpret_cast<Block*>(reinterpret_cast<uintptr_t>(p) & ~uintptr_t(kBlockBytes - 1));
    Drop(b, 1);
}

size_t LiveBlocks() noexcept { return g_liveBlocks.load(std::memory_order_relaxed); }

} // namespace kestrin::node_memory
