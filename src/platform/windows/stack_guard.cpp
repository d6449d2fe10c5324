#include <cstdint>

#include "platform/win32.h"

// What the compiler's checks for overrun buffers on the stack call, where the toolchain has no
// library of it (ARM64). The guard is random at each load; an overrun ends the process at once.

extern "C" {

extern std::uintptr_t __stack_chk_guard;
std::uintptr_t __stack_chk_guard = 0x0BADC0DE;  // until the constructor below has run

[[noreturn]] void __stack_chk_fail();
[[noreturn]] void __stack_chk_fail() {
    asm volatile("mov w0, #2\n\tbrk #0xf003" ::: "w0");
    __builtin_unreachable();
}

}  // extern "C"

namespace {

// Not protected itself: it changes the guard.
[[gnu::constructor, gnu::no_stack_protector]] void chooseGuard() {
    std::uintptr_t random = 0;
    BCRYPT_ALG_HANDLE const systemsOwn = nullptr;
    if (BCryptGenRandom(systemsOwn, reinterpret_cast<PUCHAR>(&random), sizeof(random),
                        BCRYPT_USE_SYSTEM_PREFERRED_RNG) >= 0) {
        __stack_chk_guard = random;
    }
}

}  // namespace
