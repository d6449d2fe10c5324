#include "session/entry_log.h"

namespace KelmoraID {

std::string formatStatus(const char* format, DWORD status) {
    return fmt::format(fmt::runtime(format), status);
}

void logEntry(const char* scope) {
    logToFile(scope, "Entering the function");
}

// quirk: untold-exits. The numbered line tells which check it was.
DWORD refuseWith(DWORD status, std::string_view line) {
    logDebug(line);
    return status;
}

DWORD exitWith(const char* scope, DWORD status, const char* suffix) {
    if (LogFile file; file) {
        const std::string text =
            formatStatus("Exiting the function, with status code: '{:#010x}'", status) + suffix;
        file.writeLine(scope, text.c_str());
    }
    return status;
}

}  // namespace KelmoraID
