// What the driver's log means, in words: the failed calls and the lines that tell of a failure.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "doctor/finding.h"
#include "doctor/log_reader.h"

namespace cardhost::doctor {

struct LogExplanation {
    std::string_view beginning;  // of the message
    Verdict verdict;
    const char* meaning;
    const char* advice;
};

/// Null for a message that tells of no failure.
const LogExplanation* explanationOfMessage(std::string_view message);

/// Explains what went wrong in one acquisition.
void explainAcquisition(const LogAcquisition& acquisition, Findings& findings);

/// What became of an acquisition, in one line: well, a problem, or where the log leaves that open a
/// note. Refusals that Windows brings about by asking for what is optional do not count.
struct LogOutcome {
    Verdict verdict;
    std::string text;
};
LogOutcome outcomeOf(const LogAcquisition& acquisition);

/// Explains a log that was read to its end. `name` is the file as shown.
void explainLog(const LogReader& log, const std::string& name, Findings& findings);

/// Reads the file, of any size, and explains it; throws a Failure (file) where it cannot be read.
void explainLogFile(const std::filesystem::path& file, Findings& findings);

}  // namespace cardhost::doctor
