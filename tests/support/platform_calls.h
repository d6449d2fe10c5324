// The platform under the unit tests: every call of the stand-in platform goes through a wrapper
// (made by make_platform_wraps.py, put in by the linker), so that a test can replace it, count it
// or make the n-th one fail, without the product knowing.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/win32.h"

namespace KelmoraID::testing {

/// A hook for each platform call, by its published name; a call without a hook reaches the
/// stand-in.
struct PlatformCalls {
#include "platform_hooks.inc"

    /// How often each call was made, by name.
    std::map<std::string, int> counts;
    /// The names of all calls in order.
    std::vector<std::string> order;

    /// Makes the n-th call (from 1) of that name fail in the way of its kind: a BOOL or a handle
    /// with 0, a LONG or NTSTATUS with an error code, and GetLastError with lastError.
    void failCall(const std::string& name, int nth = 1, DWORD lastError = 1234);
    /// Makes the n-th call (from 1) of all those counted from now on fail, whatever it is: with
    /// that last error and, where it tells by a code, with that code; 0 stands for one of its kind.
    void failNth(int n, DWORD code = 0);

    struct Failure {
        int nth;
        DWORD lastError;
    };
    std::map<std::string, Failure> failures;
    int failAt = 0;
    int seen = 0;
    DWORD failCode = 0;
    bool failed = false;  ///< whether failNth has struck
};

/// Where set, is told of each platform call as it leaves the code under test, with its name, and of
/// its return, with NULL.
extern void (*onPlatformCall)(const char* name);

/// Where cleared, calls are neither counted nor made to fail, and any thread may make them.
extern bool countsPlatformCalls;

PlatformCalls& platformCalls();

/// Clears all hooks, counts and failures when a test begins and when it ends.
struct PlatformCallsGuard {
    PlatformCallsGuard() { platformCalls() = PlatformCalls(); }
    ~PlatformCallsGuard() { platformCalls() = PlatformCalls(); }
    PlatformCallsGuard(const PlatformCallsGuard&) = delete;
    PlatformCallsGuard& operator=(const PlatformCallsGuard&) = delete;
};

}  // namespace KelmoraID::testing
