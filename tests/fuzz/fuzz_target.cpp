#include "fuzz_target.h"

#include <cstdio>
#include <cstdlib>

#include "platform/fixed_paths.h"

// Lines are made, but no run waits for a file.
const char* logFilePath() {
    return "";
}

const char* settingsFilePath() {
    return "/dev/null";
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    if (std::freopen("/dev/null", "w", stdout) == nullptr) std::abort();
    return 0;
}

namespace fuzz {

void require(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

void readAll(const void* bytes, std::size_t size) {
    const auto* first = static_cast<const volatile std::uint8_t*>(bytes);
    std::uint8_t sum = 0;
    for (std::size_t at = 0; at < size; ++at) sum = static_cast<std::uint8_t>(sum ^ first[at]);
    [[maybe_unused]] static volatile std::uint8_t sink;
    sink = sum;
}

}  // namespace fuzz
