// The machine's registry: the two settings of the system, read as text.
#pragma once

#include "platform/wide_text.h"

namespace KelmoraID {

/// The directory service's addresses, under HKEY_LOCAL_MACHINE.
inline constexpr WideStringView serviceAddressKey = WIDE_TEXT("SOFTWARE\\Kelmora\\KelmoraID\\");
inline constexpr const char* serviceAddressValue = "ADRSURL";

/// The companion application's start-up command, under HKEY_LOCAL_MACHINE.
inline constexpr WideStringView companionRunKey =
    WIDE_TEXT("SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Run");
inline constexpr const char* companionRunValue = "Kelmora ID";

/// Reads a plain string value (REG_SZ) under HKEY_LOCAL_MACHINE.
/// @param key    the key's path; its NUL-terminated form is used
/// @param value  the value's name; its NUL-terminated form is used
/// @return the text without terminator; empty when the value was not read. A missing key or value
///         is not logged; any other failure goes to both log channels.
WideString readRegistryString(const WideString& key, const WideString& value);

}  // namespace KelmoraID
