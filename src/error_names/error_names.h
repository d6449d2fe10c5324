// A diagnostic dictionary: the symbolic names of the platform's published error and status codes,
// and two small checks on it. Held ready: no entry point calls them.
#pragma once

#include <string>

#include "platform/win32.h"

namespace KelmoraID {

/// The symbolic name of a 32-bit code, such as "SCARD_E_UNEXPECTED", or "error unmapped
/// (errorMAp)". Where the platform publishes two names for a code, the first of the list is given.
std::string errorName(DWORD code);

/// Compares a result with the expected one and reports a difference on the ERROR channel.
/// @param expectedName  the text for the expected code; if empty, errorName gives it
/// @return true if the two are equal
bool checkResult(DWORD actual, DWORD expected, const std::string& expectedName);

/// Writes the prefix and the name of the code on the WARNING channel.
void logResultName(const std::string& prefix, DWORD code);

}  // namespace KelmoraID
