// bench_load: how long LoadLibrary takes for two DLLs, turn by turn in one process. What both
// import is loaded already. Prints microseconds as one line of JSON.
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
    std::printf("}\n");
    return 0;
}
