// Runs a fuzz target over each file of the folders that it is given, or over the files themselves:
// what fuzzers have found once stays found in every sanitized build, without a fuzzer.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include "fuzz_target.h"

int main(int argc, char** argv) {
    std::vector<std::filesystem::path> files;
    for (int at = 1; at < argc; ++at) {
        if (!std::filesystem::is_directory(argv[at])) {
            files.emplace_back(argv[at]);
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(argv[at])) {
            if (entry.is_regular_file()) files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    LLVMFuzzerInitialize(&argc, &argv);
    for (const auto& path : files) {
        std::fprintf(stderr, "%s\n", path.filename().c_str());
        std::ifstream file(path, std::ios::binary);
        const std::vector<char> content{std::istreambuf_iterator<char>(file), {}};
        if (!file) {
            std::fprintf(stderr, "it cannot be read\n");
            return 1;
        }
        // On the heap and of the very size: a read beyond its end is seen.
        const std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[content.size()]);
        std::copy(content.begin(), content.end(), bytes.get());
        LLVMFuzzerTestOneInput(bytes.get(), content.size());
    }
    std::fprintf(stderr, "%zu inputs\n", files.size());
    return files.empty() ? 1 : 0;
}
