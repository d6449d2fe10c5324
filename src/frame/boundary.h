// The guard at the boundary. The entry points catch only what has a meaning to them; whatever else
// is thrown, as an object or as a pointer, is stopped here, so that it never reaches the process
// that loaded the library.
#pragma once

#include "platform/minidriver.h"

namespace KelmoraID {

template <auto entryPoint>
struct Guarded;

/// Guarded<entryPoint>::call has the entry point's own signature. An exception that the entry point
/// lets pass ends as SCARD_E_UNEXPECTED, without a line.
template <typename... Arguments, DWORD(WINAPI* entryPoint)(Arguments...)>
struct Guarded<entryPoint> {
    static DWORD WINAPI call(Arguments... arguments) {
        try {
            return entryPoint(arguments...);
        } catch (...) {
            return static_cast<DWORD>(SCARD_E_UNEXPECTED);
        }
    }
};

}  // namespace KelmoraID
