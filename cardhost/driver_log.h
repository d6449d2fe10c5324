// The driver's own log: lines "[time] [scope] message", one file for all processes.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "recording/conversation.h"

namespace cardhost {

/// The lines that are written to a log from now on. A log that is not there has none.
class LogFollower {
public:
    explicit LogFollower(std::filesystem::path file);

    /// Those since the last question.
    std::vector<std::string> newLines();

private:
    std::filesystem::path file_;
    std::uintmax_t seen_ = 0;
};

/// The last acquisition in a log and all calls after it, as far as a log tells them: no commands
/// and no times. Only the last few megabytes are read. Throws a Failure (file) if the file cannot
/// be read, or tells of no call.
recording::Conversation lastLogonInLog(const std::filesystem::path& file);

/// The same of a log's text.
recording::Conversation lastLogonIn(std::string_view text);

}  // namespace cardhost
