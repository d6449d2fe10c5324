// What a test sees of the two log channels, as whole lines.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <string>
#include <vector>

namespace KelmoraID::testing {

/// A line of either channel without its time stamp: the scope and message of the file, or the level
/// and message of standard output.
struct LogLine {
    std::string scope;
    std::string message;
    bool operator==(const LogLine&) const = default;
};
std::ostream& operator<<(std::ostream& stream, const LogLine& line);
using LogLines = std::vector<LogLine>;

/// Lines under one scope.
LogLines lines(const std::string& scope, std::initializer_list<std::string> messages);
/// The text of an exit line, and the line.
std::string exited(std::uint32_t status, const std::string& suffix = "");
LogLine exitLine(const std::string& scope, std::uint32_t status);

/// Catches both channels from construction on. The log file is the one of tests/support/test_paths,
/// in a folder of this process; it is emptied first. Every line's time stamp is checked for its
/// form.
class LogCapture {
public:
    LogCapture();
    /// Lets go of standard output, and prints what was caught if nobody asked for it.
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// The lines of the log file since construction or the last call.
    LogLines file();
    /// The lines of standard output since construction or the last call.
    LogLines output();
    /// Forgets the lines of both channels so far.
    void clear();

private:
    std::size_t fileRead_ = 0;
};

/// The log file's content as it stands, with time stamps.
std::string logFileContent();

/// Takes the log file away, also where another thread is writing to it just then.
void removeLogFile();

/// The folder of this process that holds the log file and the settings file.
const std::string& testFolder();

}  // namespace KelmoraID::testing
