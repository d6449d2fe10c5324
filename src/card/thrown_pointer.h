// How the PIN and decipher sequences report what is no transport failure.
#pragma once

namespace KelmoraID {

/// Throws a pointer to a new std::runtime_error, which nobody frees. A handler for std::exception
/// does not see it: so an entry point and its log tell such a failure from one of the transport.
[[noreturn]] void throwPointer(const char* text);

}  // namespace KelmoraID
