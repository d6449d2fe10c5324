// What all entry points have in common in their log: the entry line and the exit line, under the
// entry point's own name.
#pragma once

#include <fmt/format.h>

#include <string>
#include <string_view>

#include "log/logger.h"
#include "platform/win32.h"

namespace KelmoraID {

/// The text of a format string with a status in it; "{:#010x}" prints "0x" and eight digits.
std::string formatStatus(const char* format, DWORD status);

/// The entry line: "Entering the function" in the log file.
void logEntry(const char* scope);

/// A refusal without an exit line: a line on the DEBUG channel, and the status for the caller to
/// return.
DWORD refuseWith(DWORD status, std::string_view line);

/// The exit line, and the status for the caller to return.
/// @param suffix  what stands behind the status, such as ", NoCardMode"
DWORD exitWith(const char* scope, DWORD status, const char* suffix = "");

}  // namespace KelmoraID
