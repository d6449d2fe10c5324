#include "counted_heap.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

thread_local bool counting = false;
bench::Heap state;

// Ahead of each block: its size where it counts, else 0. As wide as the strictest alignment.
constexpr std::size_t headerSize = alignof(std::max_align_t);
static_assert(headerSize >= sizeof(std::size_t));

}  // namespace

namespace bench {

Counting::Counting(bool counts) : before_(counting) {
    counting = counts;
}

Counting::~Counting() {
    counting = before_;
}

Heap heap() {
    return state;
}

void resetHeap() {
    state = {};
}

void hold(long bytes) {
    state.held += bytes;
    state.peak = std::max(state.peak, state.held);
}

}  // namespace bench

void* operator new(std::size_t size) {
    auto* block = static_cast<unsigned char*>(std::malloc(size + headerSize));
    if (block == nullptr) throw std::bad_alloc();
    *reinterpret_cast<std::size_t*>(block) = counting ? size : 0;
    if (counting) {
        ++state.allocations;
        bench::hold(static_cast<long>(size));
    }
    return block + headerSize;
}

void operator delete(void* address) noexcept {
    if (address == nullptr) return;
    auto* block = static_cast<unsigned char*>(address) - headerSize;
    const std::size_t counted = *reinterpret_cast<std::size_t*>(block);
    if (counted != 0) state.held -= static_cast<long>(counted);
    std::free(block);
}

void operator delete(void* address, std::size_t) noexcept {
    operator delete(address);
}
