#include "session/entry_log.h"

namespace KelmoraID {

std::string formatStatus(const char* format, DWORD status) {
    return fmt::format(fmt::runtime(format), status);
}

void logEntry(const char* scope) {
    logToFile(scope, "Entering the function");
}

DWORD exitWith(const char* scope, DWORD status, const char* suffix) {
    logToFile(scope,
              formatStatus("Exiting the function, with status code: '{:#010x}'", status) + suffix);
    return status;
}

}  // namespace KelmoraID
