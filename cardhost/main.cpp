// cardhost: the platform's side of the minidriver interface as a program.
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "doctor/printable.h"
#include "exit_codes.h"
#include "options.h"
#include "os.h"

namespace {

int end(cardhost::ExitCode code, const char* message) {
    if (*message == 0) return static_cast<int>(code);
    const std::string text = "cardhost: " + cardhost::doctor::printable(message);
    // Scripts get one line, and people lines that end between words.
    constexpr std::size_t width = 80;
    const bool isBroken = cardhost::os::isTerminal(stderr) && text.size() > width;
    for (const std::string& line :
         isBroken ? cardhost::doctor::wrapped(text, width) : std::vector<std::string>{text}) {
        fmt::print(stderr, "{}\n", line);
    }
    return static_cast<int>(code);
}

}  // namespace

int main(int argc, char** argv) {
    using namespace cardhost;
    try {
        std::FILE* report = os::separateReport();
        const CommandLine line = parse(os::arguments(argc, argv), report);
        if (line.common.trace) os::showOtherOutput();
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
