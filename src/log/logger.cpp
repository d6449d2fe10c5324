#include "log/logger.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string_view>

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
// another locale than the classic one; asking it would link in all of its facets, 700 KB. The C
// locale belongs to the host process and changes nothing.
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

// Piece by piece into the stream's buffer: the runtime's formatter would cost the DLL 24 KB.
void write(std::FILE* stream, std::string_view piece) {
    std::fwrite(piece.data(), 1, piece.size(), stream);
}

}  // namespace

// The state of the file system alone switches the log on and off.
LogFile::LogFile() : file_(std::fopen(logFilePath(), "a")) {}

LogFile::~LogFile() {
    if (file_ != nullptr) std::fclose(file_);
}

void LogFile::writeLine(const char* scope, const char* message) {
    const std::array<char, 100> stamp = localTimeStamp();
    for (const char* piece : {"[", stamp.data(), "] [", scope, "] ", message, "\n"}) {
        write(file_, piece);
    }
}

void LogFile::writeFormatted(const char* scope, fmt::string_view format,
                             fmt::format_args arguments) {
    writeLine(scope, fmt::vformat(format, arguments).c_str());
}

void logToFile(const char* scope, const char* message) {
    if (LogFile file; file) file.writeLine(scope, message);
}

void logFormatted(const char* scope, fmt::string_view format, fmt::format_args arguments) {
    if (LogFile file; file) file.writeFormatted(scope, format, arguments);
}

void logLevel(std::string_view level, std::string_view message) {
    write(stdout, "[");
    write(stdout, utcTimeStamp());
    write(stdout, "] [");
    write(stdout, level);
    write(stdout, "] ");
    write(stdout, message);
    write(stdout, "\n");
    std::fflush(stdout);
}

void logInfo(std::string_view message) {
    logLevel("INFO", message);
}

void logDebug(std::string_view message) {
    logLevel("DEBUG", message);
}

void logWarning(std::string_view message) {
    logLevel("WARNING", message);
}

void logError(std::string_view message) {
    logLevel("ERROR", message);
}

}  // namespace KelmoraID
