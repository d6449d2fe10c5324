// Writes as many bytes as it is told into a buffer of eight, under the DLL's own guard of the
// stack: ends by itself with 0 where they fit. With none, sees that the guard is not the one of
// before loading.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" std::uintptr_t __stack_chk_guard;

namespace {

[[gnu::noinline]] void fill(int count) {
    volatile char buffer[8] = {};
    volatile char* volatile place = buffer;
    for (int i = 0; i < count; ++i) place[i] = 'x';
}

}  // namespace

int main(int argc, char** argv) {
    const int count = argc == 2 ? std::atoi(argv[1]) : 0;
    if (count == 0) return __stack_chk_guard == 0x0BADC0DE || (__stack_chk_guard & 0xFF) != 0;
    fill(count);
    std::puts("went on");
    return 0;
}
