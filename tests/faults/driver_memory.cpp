#include "driver_memory.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace faults {

std::function<void(const void*, std::size_t)> onGivenBack;

namespace {

bool inside = false;
long allocations = 0;
long failAt = 0;
bool failed = false;
Held held;

// The blocks of the driver by their address: open addressing in a fixed table, since it must not
// allocate itself.
struct Block {
    void* address;
    std::size_t size;
};
constexpr std::size_t places = 1U << 16;
std::array<Block, places> blocks;
void* const gone = &blocks;

std::size_t placeOf(const void* address) {
    return (reinterpret_cast<std::uintptr_t>(address) >> 4) * 0x9E3779B97F4A7C15U >> 48;
}

void note(void* address, std::size_t size) {
    for (std::size_t step = 0; step < places; ++step) {
        Block& block = blocks[(placeOf(address) + step) % places];
        if (block.address != nullptr && block.address != gone) continue;
        block = {address, size};
        ++held.blocks;
        held.bytes += size;
        return;
    }
    std::abort();  // More blocks at a time than any driver of this kind has.
}

void forget(void* address) {
    for (std::size_t step = 0; step < places; ++step) {
        Block& block = blocks[(placeOf(address) + step) % places];
        if (block.address == nullptr) return;
        if (block.address != address) continue;
        --held.blocks;
        held.bytes -= block.size;
        const std::size_t size = block.size;
        block.address = gone;
        if (onGivenBack) {
            const OutsideDriver outside;
            onGivenBack(address, size);
        }
        return;
    }
}

void* take(std::size_t size) {
    if (inside) {
        ++allocations;
        if (failAt != 0 && allocations == failAt) {
            failed = true;
            return nullptr;
        }
    }
    void* address = std::malloc(size == 0 ? 1 : size);
    if (inside && address != nullptr) note(address, size);
    return address;
}

void giveBack(void* address) {
    if (address == nullptr) return;
    if (held.blocks != 0) forget(address);
    std::free(address);
}

}  // namespace

InsideDriver::InsideDriver() : before_(inside) {
    inside = true;
}
InsideDriver::~InsideDriver() {
    inside = before_;
}
OutsideDriver::OutsideDriver() : before_(inside) {
    inside = false;
}
OutsideDriver::~OutsideDriver() {
    inside = before_;
}

bool isInsideDriver() {
    return inside;
}
void setInsideDriver(bool isInside) {
    inside = isInside;
}

void failDriverAllocation(long n) {
    allocations = 0;
    failAt = n;
    failed = false;
}

long driverAllocations() {
    return allocations;
}

bool driverAllocationFailed() {
    return failed;
}

Held heldByDriver() {
    return held;
}

void forgetHeld() {
    blocks.fill({nullptr, 0});
    held = {};
}

}  // namespace faults

// The program's own, in place of the runtime library's.
void* operator new(std::size_t size) {
    if (void* address = faults::take(size)) return address;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return faults::take(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return faults::take(size);
}
void operator delete(void* address) noexcept {
    faults::giveBack(address);
}
void operator delete[](void* address) noexcept {
    faults::giveBack(address);
}
void operator delete(void* address, std::size_t) noexcept {
    faults::giveBack(address);
}
void operator delete[](void* address, std::size_t) noexcept {
    faults::giveBack(address);
}
void operator delete(void* address, const std::nothrow_t&) noexcept {
    faults::giveBack(address);
}
void operator delete[](void* address, const std::nothrow_t&) noexcept {
    faults::giveBack(address);
}
