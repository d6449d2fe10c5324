#include "support/platform_calls.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <type_traits>

namespace KelmoraID::testing {

void (*onPlatformCall)(const char* name) = nullptr;
bool countsPlatformCalls = true;

PlatformCalls& platformCalls() {
    static PlatformCalls calls;
    return calls;
}

void PlatformCalls::failCall(const std::string& name, int nth, DWORD lastError) {
    failures[name] = {counts[name] + nth, lastError};
}

void PlatformCalls::failNth(int n, DWORD code) {
    failAt = n;
    failCode = code;
    seen = 0;
    failed = false;
}

namespace {

// How a call of each kind tells that it failed.
template <typename Result>
Result failureOf(const std::string& name, DWORD code) {
    if constexpr (std::is_same_v<Result, void>) {
        return;
    } else if constexpr (std::is_same_v<Result, LONG>) {
        // BOOL, LONG, LSTATUS, NTSTATUS and int share a type: told apart by the name.
        const auto orElse = [code](DWORD usual) {
            return static_cast<LONG>(code != 0 ? code : usual);
        };
        if (name.starts_with("SCard")) return orElse(static_cast<DWORD>(SCARD_E_UNEXPECTED));
        if (name.starts_with("BCrypt")) return orElse(0xC0000001);
        if (name.starts_with("Reg")) return orElse(5);
        return 0;
    } else {
        return Result{};
    }
}

// The calls that give memory back: they do so too where they are made to fail.
constexpr std::string_view givingBack[] = {"CryptReleaseContext", "CryptDestroyHash",
                                           "BCryptCloseAlgorithmProvider", "BCryptDestroyHash",
                                           "CertFreeCertificateContext"};

struct Crossing {
    explicit Crossing(const char* name) {
        if (onPlatformCall != nullptr) onPlatformCall(name);
    }
    ~Crossing() {
        if (onPlatformCall != nullptr) onPlatformCall(nullptr);
    }
    Crossing(const Crossing&) = delete;
    Crossing& operator=(const Crossing&) = delete;
};

template <typename Result, typename Hook, typename Real, typename... Arguments>
Result intercept(const char* name, Hook& hook, Real real, Arguments... arguments) {
    const Crossing crossing(name);
    PlatformCalls& calls = platformCalls();
    // The bookkeeping of the last error is no call that can fail.
    const std::string called = name;
    if (countsPlatformCalls && called != "GetLastError" && called != "SetLastError") {
        calls.order.push_back(called);
        const int count = ++calls.counts[called];
        ++calls.seen;
        const auto failure = calls.failures.find(called);
        const bool named = failure != calls.failures.end() && failure->second.nth == count;
        const bool numbered = calls.failAt != 0 && calls.seen == calls.failAt;
        if (named || numbered) {
            calls.failed = calls.failed || numbered;
            if (std::count(std::begin(givingBack), std::end(givingBack), called) != 0 && !hook) {
                real();
            }
            const DWORD code = named ? 0 : calls.failCode;
            SetLastError(named ? failure->second.lastError : code != 0 ? code : 1234);
            return failureOf<Result>(called, code);
        }
    }
    if (hook) return hook(arguments...);
    return real();
}

}  // namespace
}  // namespace KelmoraID::testing

using KelmoraID::testing::intercept;
using KelmoraID::testing::platformCalls;

#include "platform_wraps.inc"
