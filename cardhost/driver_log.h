// The driver's own log: lines "[time] [scope] message", one file for all processes.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "doctor/log_reader.h"
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

struct LoggedLogon {
    recording::Conversation conversation;  // without commands and times
    std::uint64_t droppedCalls = 0;        // earlier ones, which are left out
    doctor::LogAcquisition acquisition;    // what went wrong in it
};

/// The last acquisition in a log and all calls after it, as far as a log tells them; of very many
/// the last ones. Each line stands with the call of its scope. Throws a Failure (file) if the file
/// cannot be read, or tells of no call.
LoggedLogon lastLogonInLog(const std::filesystem::path& file);

/// The same of a log's text.
LoggedLogon lastLogonIn(std::string_view text);

}  // namespace cardhost
