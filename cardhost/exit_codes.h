// What the program's exit code tells, and the failure that carries one.
#pragma once

#include <stdexcept>
#include <string>

namespace cardhost {

enum class ExitCode : int {
    ok = 0,
    usage = 1,        // the command line makes no sense, or does not fit the card
    notFound = 2,     // no driver, no reader or no card
    refused = 3,      // the driver refused; its status is printed
    wrongPin = 4,     // the card took the PIN for wrong, or the driver its length; tries remain
    pinBlocked = 5,   // no tries remain
    file = 6,         // a file cannot be read, understood or written
    recording = 7,    // a replayed card was asked what its recording has not
    unwell = 8,       // the doctor found what stands in the way of a card
    unseen = 9,       // the driver's commands do not come by where they are listened for
    unexpected = 70,  // a fault of this program
};

inline constexpr const char* exitCodeHelp =
    "Exit codes: 0 done; 1 wrong usage; 2 no driver, reader or card; 3 the driver\n"
    "refused (its status is printed); 4 wrong PIN; 5 PIN blocked; 6 a file cannot be\n"
    "read, understood or written; 7 the recording has not what was asked; 8 the\n"
    "doctor found what stands in the way; 9 the driver's commands cannot be seen;\n"
    "70 a fault of this program.";

/// Ends the command with an exit code and, if it has a message, one line on standard error.
class Failure : public std::runtime_error {
public:
    Failure(ExitCode code, const std::string& message) : std::runtime_error(message), code_(code) {}

    ExitCode code() const { return code_; }

private:
    ExitCode code_;
};

}  // namespace cardhost
