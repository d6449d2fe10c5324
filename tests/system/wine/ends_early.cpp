// Ends as a suite does that never gets to its results, in the way that the name of its results
// tells.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string_view>

int main(int argc, char** argv) {
    const std::string_view results = argc > 1 ? argv[1] : "";
    const auto wanted = [&](std::string_view way) {
        return results.find(way) != std::string_view::npos;
    };
    if (wanted("planted.abort")) std::abort();
    if (wanted("planted.terminate")) std::terminate();
    if (!wanted("planted.cannot")) return 0;
    std::puts("this machine does not allow it");
    return 77;
}
