#include "error_names/error_names.h"

#include <fmt/format.h>

#include "error_names/error_name_table.h"
#include "log/logger.h"

namespace KelmoraID {

std::string errorName(DWORD code) {
    return std::string(findErrorName(code).value_or("error unmapped (errorMAp)"));
}

bool checkResult(DWORD actual, DWORD expected, const std::string& expectedName) {
    if (actual == expected) return true;
    // quirk: unbalanced-quote. A search in a log goes by the text.
    logError(fmt::format("'Result: {} '0x{:X}' != '0x{:X}' <- Expected({})", errorName(actual),
                         actual, expected,
                         expectedName.empty() ? errorName(expected) : expectedName));
    return false;
}

void logResultName(const std::string& prefix, DWORD code) {
    logWarning(fmt::format("{}{}", prefix, errorName(code)));
}

}  // namespace KelmoraID
