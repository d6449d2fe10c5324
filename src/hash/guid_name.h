// The name of a container: a GUID made of a text, so that the same text has the same name on every
// machine.
#pragma once

#include <string>

#include "platform/win32.h"

namespace KelmoraID {

/// The name of a container: a GUID made of the SHA-1 of the text, in the manner of a version 5 UUID
/// (RFC 4122, 4.3) without its name space, and with the byte 80 in place of the ninth byte.
/// @param wszGuid  gets the braced form, 38 characters and a terminator; it stays as it was when a
///                 step of the platform fails, without a report
void containerGuidName(const std::string& text, WCHAR (&wszGuid)[40]);

}  // namespace KelmoraID
