// The log lines of the client that speaks to the directory services.
#pragma once

#include <string>

#include "log/logger.h"

namespace KelmoraID {

/// The scope of the client's lines in the log file.
inline constexpr const char* serviceLogScope = "AdAttributeService";

/// A line on the DEBUG channel, when asked for.
inline void logDebugIf(bool debug, const std::string& message) {
    if (debug) logDebug(message);
}

}  // namespace KelmoraID
