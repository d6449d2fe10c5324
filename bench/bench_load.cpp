// bench_load: how long LoadLibrary takes for two DLLs, turn by turn in one process, and the bytes
// of heap that are taken meanwhile. What both import is loaded already. Prints microseconds and
// bytes as one line of JSON.
//
//   bench_load FIRST.dll SECOND.dll ROUNDS
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

double microseconds(const char* file) {
    LARGE_INTEGER frequency, start, end;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&start);
    HMODULE module = LoadLibraryA(file);
    QueryPerformanceCounter(&end);
    if (module == nullptr) {
        std::fprintf(stderr, "bench_load: %s cannot be loaded: %lu\n", file, GetLastError());
        std::exit(1);
    }
    FreeLibrary(module);
    return static_cast<double>(end.QuadPart - start.QuadPart) * 1e6 /
           static_cast<double>(frequency.QuadPart);
}

/// What is in use of all heaps, the C library's among them.
SIZE_T heapInUse() {
    HANDLE heaps[64];
    const DWORD count = GetProcessHeaps(64, heaps);
    SIZE_T bytes = 0;
    for (DWORD i = 0; i < count && i < 64; ++i) {
        PROCESS_HEAP_ENTRY entry{};
        while (HeapWalk(heaps[i], &entry)) {
            if (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) bytes += entry.cbData;
        }
    }
    return bytes;
}

SIZE_T heapTaken(const char* file) {
    const SIZE_T before = heapInUse();
    HMODULE module = LoadLibraryA(file);
    const SIZE_T after = heapInUse();
    FreeLibrary(module);
    return after - before;
}

void print(const char* name, const std::vector<double>& times) {
    std::printf("\"%s\": [", name);
    for (std::size_t i = 0; i < times.size(); ++i)
        std::printf("%s%.1f", i == 0 ? "" : ", ", times[i]);
    std::printf("]");
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc == 4 ? std::atoi(argv[3]) : 0;
    if (rounds <= 0) {
        std::fprintf(stderr, "usage: bench_load FIRST.dll SECOND.dll ROUNDS\n");
        return 2;
    }
    for (const char* library : {"advapi32.dll", "bcrypt.dll", "crypt32.dll", "msvcrt.dll",
                                "ole32.dll", "user32.dll", "winhttp.dll", "winscard.dll"}) {
        LoadLibraryA(library);
    }
    std::vector<double> first, second;
    microseconds(argv[1]);
    microseconds(argv[2]);
    for (int round = 0; round < rounds; ++round) {
        if (round % 2 == 0) first.push_back(microseconds(argv[1]));
        second.push_back(microseconds(argv[2]));
        if (round % 2 != 0) first.push_back(microseconds(argv[1]));
    }
    std::printf("{");
    print("first", first);
    std::printf(", ");
    print("second", second);
    std::printf(", \"heap\": [%llu, %llu]}\n", static_cast<unsigned long long>(heapTaken(argv[1])),
                static_cast<unsigned long long>(heapTaken(argv[2])));
    return 0;
}
