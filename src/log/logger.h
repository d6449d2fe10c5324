// The two log channels: the log file, which holds the history of every call, and the levelled lines
// on standard output. Nothing configures either: the file is written when its folder exists and the
// process may write there, and the folder is never created.
#pragma once

#include <string>

namespace KelmoraID {

/// Appends one line "[time] [scope] message" to the log file, with the local time. The file is
/// opened and closed for each line. A line that cannot be written is lost without a report.
/// @param scope    the caller's name, as a rule the entry point's
/// @param message  the message; it ends at its first NUL
void logToFile(const char* scope, const char* message);

/// The same for a string; what follows its first NUL is not written.
inline void logToFile(const char* scope, const std::string& message) {
    logToFile(scope, message.c_str());
}

/// One line "[time] [LEVEL] message" on standard output, flushed; the time is UTC with its fraction
/// of a second. The four levels are "INFO", "DEBUG", "WARNING" and "ERROR".
void logInfo(const std::string& message);
void logDebug(const std::string& message);
void logWarning(const std::string& message);
void logError(const std::string& message);

/// The same with a level text of the caller's.
void logLevel(const std::string& level, const std::string& message);

/// Takes a message and discards it: these progress lines appear nowhere.
void logDropped(const std::string& message);

}  // namespace KelmoraID
