// cardhost: the platform's side of the minidriver interface as a program.
#include <cstdio>
#include <exception>

#include <fmt/format.h>

#include "exit_codes.h"
#include "options.h"
#include "os.h"

namespace {

int end(cardhost::ExitCode code, const char* message) {
    if (*message != 0) fmt::print(stderr, "cardhost: {}\n", message);
    return static_cast<int>(code);
}

}  // namespace

int main(int argc, char** argv) {
    using namespace cardhost;
    try {
        std::FILE* report = os::separateReport();
        const CommandLine line = parse(os::arguments(argc, argv), report);
        if (line.action) line.action(line.common, report);
        return static_cast<int>(ExitCode::ok);
    } catch (const Failure& failure) {
        return end(failure.code(), failure.what());
    } catch (const std::exception& exception) {
        return end(ExitCode::unexpected, exception.what());
    } catch (...) {
        return end(ExitCode::unexpected, "something unknown was thrown");
    }
}
