#include "log/logger.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>

#include "platform/fixed_paths.h"

namespace KelmoraID {
namespace {

// The local time by "%Y-%m-%d %H:%M:%S"; empty should the time have no local form.
std::array<char, 100> localTimeStamp() {
    std::array<char, 100> stamp{};
    try {
        const std::tm local = fmt::localtime(std::time(nullptr));
        std::strftime(stamp.data(), stamp.size(), "%Y-%m-%d %H:%M:%S", &local);
    } catch (const fmt::format_error&) {
        stamp.front() = '\0';
    }
    return stamp;
}

// The decimal sign of the C++ locale. The DLL has a C++ runtime of its own, in which nobody sets
// another locale than the classic one; asking it would link in all of its facets. The C locale
// belongs to the host process and changes nothing.
constexpr char decimalSign = '.';

// The system clock's value in UTC, with the fraction of a second in as many digits as the clock
// has.
std::string utcTimeStamp() {
    using namespace std::chrono;
    const auto now = system_clock::now();
    const auto day = floor<days>(now);
    const year_month_day date(day);
    const hh_mm_ss time(now - day);
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}{}{:0{}}", static_cast<int>(date.year()),
                       static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                       time.hours().count(), time.minutes().count(), time.seconds().count(),
                       decimalSign, time.subseconds().count(), decltype(time)::fractional_width);
}

void write(const std::string& piece) {
    std::fwrite(piece.data(), 1, piece.size(), stdout);
}

}  // namespace

void logToFile(const char* scope, const char* message) {
    std::FILE* file = std::fopen(logFilePath(), "a");
    if (file == nullptr) return;  // The state of the file system alone switches the log on and off.
    std::fprintf(file, "[%s] [%s] %s\n", localTimeStamp().data(), scope, message);
    std::fclose(file);
}

void logLevel(const std::string& level, const std::string& message) {
    write("[");
    write(utcTimeStamp());
    write("] [");
    write(level);
    write("] ");
    write(message);
    write("\n");
    std::fflush(stdout);
}

void logInfo(const std::string& message) {
    logLevel("INFO", message);
}

void logDebug(const std::string& message) {
    logLevel("DEBUG", message);
}

void logWarning(const std::string& message) {
    logLevel("WARNING", message);
}

void logError(const std::string& message) {
    logLevel("ERROR", message);
}

// quirk: dropped-lines. Progress of the PIN and the signature paths that no log has ever shown.
void logDropped(const std::string&) {}

}  // namespace KelmoraID
