// The companion application's PIN dialog: where its library lies, and whether it may be used now.
#pragma once

#include "platform/wide_text.h"

namespace KelmoraID {

/// Finds the dialog library by the companion application's start-up command, tries to load it, and
/// moves the process to its folder, where it stays.
/// @param path  the library's full path, without terminator; written on success only
bool isExternalPinDialogAvailable(WideString& path);

/// Whether the logon screen is in front. In doubt it is.
bool isLoginWindowHandle();

}  // namespace KelmoraID
