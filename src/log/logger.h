// The two log channels: the log file, which holds the history of every call, and the levelled lines
// on standard output. Nothing configures either: the file is written when its folder exists and the
// process may write there, and the folder is never created.
#pragma once

#include <fmt/core.h>

#include <cstdio>
#include <string>
#include <string_view>

namespace KelmoraID {

/// The log file, opened for one line. Where it cannot be opened there is nothing to write to, and a
/// line need not be made.
class LogFile {
public:
    LogFile();
    ~LogFile();
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    explicit operator bool() const { return file_ != nullptr; }
    /// Appends the line "[time] [scope] message"; only for an open file.
    void writeLine(const char* scope, const char* message);
    /// The same for a message with arguments.
    template <typename First, typename... Rest>
    void writeLine(const char* scope, fmt::format_string<First, Rest...> format, First&& first,
                   Rest&&... rest) {
        writeFormatted(scope, format, fmt::make_format_args(first, rest...));
    }

    /// What the two templates stand on.
    void writeFormatted(const char* scope, fmt::string_view format, fmt::format_args arguments);

private:
    std::FILE* file_;
};

/// Appends one line "[time] [scope] message" to the log file, with the local time. The file is
/// opened and closed for each line. A line that cannot be written is lost without a report.
/// @param scope    the caller's name, as a rule the entry point's
/// @param message  the message; it ends at its first NUL
void logToFile(const char* scope, const char* message);

/// The same for a string; what follows its first NUL is not written.
inline void logToFile(const char* scope, const std::string& message) {
    logToFile(scope, message.c_str());
}

void logFormatted(const char* scope, fmt::string_view format, fmt::format_args arguments);

/// The same for a message with arguments, which is made only where there is a log.
template <typename First, typename... Rest>
void logToFile(const char* scope, fmt::format_string<First, Rest...> format, First&& first,
               Rest&&... rest) {
    logFormatted(scope, format, fmt::make_format_args(first, rest...));
}

/// One line "[time] [LEVEL] message" on standard output, flushed; the time is UTC with its fraction
/// of a second. The four levels are "INFO", "DEBUG", "WARNING" and "ERROR".
void logInfo(std::string_view message);
void logDebug(std::string_view message);
void logWarning(std::string_view message);
void logError(std::string_view message);

/// The same with a level text of the caller's.
void logLevel(std::string_view level, std::string_view message);

/// Takes a message and discards it, without making it.
/// quirk: dropped-lines. Progress of the PIN and the signature paths that no log has ever shown.
inline void logDropped(std::string_view) {}
template <typename First, typename... Rest>
void logDropped(fmt::format_string<First, Rest...>, First&&, Rest&&...) {}

}  // namespace KelmoraID
