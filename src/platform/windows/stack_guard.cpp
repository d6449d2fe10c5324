#include <cstdint>
#include <initializer_list>

#include "platform/win32.h"

// What the compiler's checks for overrun buffers call. In place of GCC's library, which fetches its
// random guard from a cryptographic provider while Windows loads the DLL, when nothing else may be
// loaded, and tells of an overrun on a console; the ARM64 toolchain has no such library. A failed
// check ends the process at once, the way that Windows has for it: no handler runs on a spoilt
// stack.

namespace {

[[noreturn]] void endProcess() {
    // __fastfail(FAST_FAIL_STACK_COOKIE_CHECK_FAILURE), which not all headers here know.
#ifdef __aarch64__
    asm volatile("mov w0, #2\n\tbrk #0xf003" ::: "w0");
#else
    asm volatile("movl $2, %%ecx\n\tint $0x29" ::: "ecx");
#endif
    __builtin_unreachable();
}

}  // namespace

extern "C" {

extern std::uintptr_t __stack_chk_guard;
std::uintptr_t __stack_chk_guard = 0x0BADC0DE;  // until the constructor below has run

[[noreturn]] void __stack_chk_fail();
[[noreturn]] void __stack_chk_fail() {
    endProcess();
}

// The same for a copy that would overrun what it copies to.
[[noreturn]] void __chk_fail();
[[noreturn]] void __chk_fail() {
    endProcess();
}

}  // extern "C"

namespace {

// From what differs at each load, as Windows' own runtime does it: nothing may be loaded for it
// here. Not protected itself, since it changes the guard.
[[gnu::constructor]] __attribute__((no_stack_protector)) void chooseGuard() {
    FILETIME time;
    LARGE_INTEGER counter;
    GetSystemTimeAsFileTime(&time);
    QueryPerformanceCounter(&counter);
    std::uint64_t mixed = reinterpret_cast<std::uintptr_t>(&counter);
    for (const std::uint64_t part :
         {std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime,
          static_cast<std::uint64_t>(counter.QuadPart),
          std::uint64_t{GetCurrentProcessId()} << 32 | GetCurrentThreadId()}) {
        mixed = (mixed ^ part) * 0x9E3779B97F4A7C15;
        mixed ^= mixed >> 29;
    }
    // The lowest byte is 0: what runs over as a text ends ahead of the guard.
    __stack_chk_guard = static_cast<std::uintptr_t>(mixed) & ~std::uintptr_t{0xFF};
}

}  // namespace
