// Which of the product's blocks of code each test runs: a line for each test in the file that the
// environment names, with its name, its milliseconds and the blocks' addresses. The blocks of
// everything that is compiled with -fsanitize-coverage=trace-pc-guard call it.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

extern "C" const char __executable_start;

namespace {

struct Block {
    std::uint32_t* guard;
    std::uintptr_t address;
};
constexpr std::size_t mostBlocks = 1 << 17;
Block reached[mostBlocks];
std::size_t reachedCount = 0;
std::uint32_t blockCount = 0;
bool records = false;

class Recorder : public testing::EmptyTestEventListener {
public:
    explicit Recorder(std::FILE* file) : file_(file) {}

private:
    void OnTestEnd(const testing::TestInfo& test) override {
        std::fprintf(file_, "%s.%s %d", test.test_suite_name(), test.name(),
                     static_cast<int>(test.result()->elapsed_time()));
        for (std::size_t at = 0; at < reachedCount; ++at) {
            std::fprintf(
                file_, " %zx",
                reached[at].address - reinterpret_cast<std::uintptr_t>(&__executable_start));
            *reached[at].guard = static_cast<std::uint32_t>(at + 1);
        }
        std::fprintf(file_, "\n");
        std::fflush(file_);
        reachedCount = 0;
    }
    std::FILE* file_;
};

[[maybe_unused]] const bool isSet = [] {
    const char* path = std::getenv("KELMORA_REACH");
    std::FILE* file = path == nullptr ? nullptr : std::fopen(path, "w");
    if (file == nullptr) return false;
    records = true;
    testing::UnitTest::GetInstance()->listeners().Append(new Recorder(file));
    return true;
}();

}  // namespace

extern "C" void __sanitizer_cov_trace_pc_guard_init(std::uint32_t* first, std::uint32_t* last) {
    for (; first < last; ++first) *first = ++blockCount;
}

extern "C" void __sanitizer_cov_trace_pc_guard(std::uint32_t* guard) {
    // A block tells once a test: its guard is empty until the test's end.
    if (!records || *guard == 0 || reachedCount == mostBlocks) return;
    *guard = 0;
    reached[reachedCount++] = {guard,
                               reinterpret_cast<std::uintptr_t>(__builtin_return_address(0)) - 1};
}
