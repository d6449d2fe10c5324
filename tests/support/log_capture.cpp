#include "support/log_capture.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <ostream>
#include <sstream>
#include <string_view>
#include <system_error>
#include <thread>

#include "platform/fixed_paths.h"

namespace KelmoraID::testing {
namespace {

// A line after its time stamp; nothing if it does not begin with one. Without std::regex: that
// would be most of what this file takes to compile.
std::optional<LogLine> lineOf(std::string_view text, bool hasFraction) {
    // In a form, '#' is a digit.
    const auto takes = [&text](std::string_view form) {
        const auto fits = [](char wanted, char found) {
            return wanted == '#' ? std::isdigit(static_cast<unsigned char>(found)) != 0
                                 : wanted == found;
        };
        if (text.size() < form.size() ||
            !std::equal(form.begin(), form.end(), text.begin(), fits)) {
            return false;
        }
        text.remove_prefix(form.size());
        return true;
    };
    if (!takes("[####-##-## ##:##:##")) return std::nullopt;
    if (hasFraction) {
        if (!takes(".#")) return std::nullopt;
        while (takes("#")) {
        }
    }
    if (!takes("] [")) return std::nullopt;
    const std::string scope(text.substr(0, text.find(']')));
    text.remove_prefix(scope.size());
    if (!takes("] ")) return std::nullopt;
    return LogLine{scope, std::string(text)};
}

// Cuts a channel's text into lines. A message may hold line ends itself: a line begins with a time
// stamp in brackets.
LogLines linesOf(const std::string& content, bool hasFraction) {
    LogLines lines;
    std::istringstream stream(content);
    for (std::string text; std::getline(stream, text);) {
        // The file is a text file: Windows ends its lines with two characters.
        if (text.ends_with('\r')) text.pop_back();
        if (auto line = lineOf(text, hasFraction)) {
            lines.push_back(std::move(*line));
        } else if (::testing::Test::HasFailure()) {
            // What the test has reported meanwhile. Were it taken for log text, each report would
            // quote the one before, and a failure in a loop would never end.
            std::fprintf(stderr, "%s\n", text.c_str());
        } else if (!lines.empty()) {
            lines.back().message += "\n" + text;
        } else {
            ADD_FAILURE() << "a log line without a time stamp: " << text;
        }
    }
    return lines;
}

// Of the file that standard output is led to.
long sizeOfOutput() {
    struct stat status {};
    constexpr int standardOutput = 1;
    return fstat(standardOutput, &status) == 0 ? static_cast<long>(status.st_size) : -1;
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const LogLine& line) {
    return stream << "[" << line.scope << "] " << line.message;
}

LogLines lines(const std::string& scope, std::initializer_list<std::string> messages) {
    LogLines result;
    for (const std::string& message : messages) result.push_back({scope, message});
    return result;
}

std::string exited(std::uint32_t status, const std::string& suffix) {
    char text[64];
    std::snprintf(text, sizeof(text), "Exiting the function, with status code: '0x%08x'",
                  static_cast<unsigned>(status));
    return text + suffix;
}

LogLine exitLine(const std::string& scope, std::uint32_t status) {
    return {scope, exited(status)};
}

std::string logFileContent() {
    std::ifstream stream(logFilePath(), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void removeLogFile() {
    // In Wine a thread of the platform's that comes or goes may be writing its line just then, and
    // the file is not to be had for a moment.
    constexpr int most = 1000;
    std::error_code error;
    for (int tries = 0; tries < most; ++tries) {
        std::filesystem::remove(logFilePath(), error);
        if (!error) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    throw std::filesystem::filesystem_error("the log file stays", error);
}

LogCapture::LogCapture() {
    std::filesystem::create_directories(std::filesystem::path(logFilePath()).parent_path());
    removeLogFile();
    std::fflush(stdout);
    ::testing::internal::CaptureStdout();
}

LogCapture::~LogCapture() {
    std::fputs(::testing::internal::GetCapturedStdout().c_str(), stdout);
}

LogLines LogCapture::file() {
    const std::string content = logFileContent();
    const std::string fresh = content.substr(std::min(fileRead_, content.size()));
    fileRead_ = content.size();
    if (!fresh.empty()) {
        EXPECT_EQ(fresh.back(), '\n') << "the last line has no end";
    }
    return linesOf(fresh, false);
}

LogLines LogCapture::output() {
    // Whatever is written leaves the buffer at once: there is nothing left for this to flush.
    const auto told = sizeOfOutput();
    std::fflush(stdout);
    EXPECT_EQ(told, sizeOfOutput()) << "a line of standard output was not flushed";
    const std::string content = ::testing::internal::GetCapturedStdout();
    ::testing::internal::CaptureStdout();
    return linesOf(content, true);
}

void LogCapture::clear() {
    file();
    output();
}

}  // namespace KelmoraID::testing
